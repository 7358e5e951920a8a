/// The mux socket with the phones that are plugged into it.
#pragma once

#include "virtualphone/phone/Phone.h"
#include "virtualphone/services/RequestLog.h"
#include "virtualphone/wire/Faults.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace virtualphone {

class BusState;

class Bus {
public:
    /// Listens on this socket path (107 bytes at most; a socket file nobody listens on is
    /// replaced). An empty path is a socket in a private temporary folder, removed with the bus.
    explicit Bus(const std::filesystem::path& socketPath = {});

    /// Ends every connection, joins every thread and removes the socket.
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    const std::filesystem::path& socketPath() const;

    /// "UNIX:" and the socket path, for USBMUXD_SOCKET_ADDRESS.
    std::string environmentValue() const;

    /// Plugs a phone in and tells the listeners. A paired phone brings the pair record of this host
    /// with it unless there is one for its UDID. Throws std::invalid_argument when a phone of this
    /// UDID is plugged in already.
    ///
    /// @return the DeviceID, a new one each time.
    uint32_t plug(std::shared_ptr<Phone> phone);

    /// Pulls a phone out: its connections are closed, with their files and locks, then the
    /// listeners are told.
    ///
    /// @return false when nothing is plugged in under this DeviceID.
    bool unplug(uint32_t deviceId);

    /// DeviceID of the phone, or 0 when it is not plugged in.
    uint32_t deviceId(const Phone& phone) const;

    RequestLog& log();

    /// Faults of the socket's own requests ("usbmux"); those of a phone's services are the phone's.
    Faults& faults();

    /// The identity of this host's mux, and the HostID in the pair records that the bus makes.
    const std::string& systemBuid() const;
    const std::string& hostId() const;

    /// Whether the bus keeps a pair record for this UDID, and forgetting it.
    bool hasPairRecord(const std::string& udid) const;
    void deletePairRecord(const std::string& udid);

    /// Number of clients' sockets that are open.
    size_t connectionCount() const;

    /// Waits until that number is down to this; false when the time is over.
    bool waitForConnections(size_t atMost,
                            std::chrono::milliseconds timeout = std::chrono::seconds(30)) const;

private:
    std::unique_ptr<BusState> state_;
};

} // namespace virtualphone
