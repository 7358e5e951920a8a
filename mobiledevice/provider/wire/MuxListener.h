// Hears from the mux daemon which phones are plugged in.
#pragma once

#include "mobiledevice/mux/MuxAddress.h"
#include "mobiledevice/provider/wire/PlistRef.h"
#include "mobiledevice/provider/wire/SocketWatch.h"
#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <thread>

namespace krl::provider {

/// Who is told, on the listener's thread. Must not end the listener there.
class MuxAudience {
public:
    /// A phone on USB; the number is the daemon's, a new one for each plugging.
    virtual void attached(uint32_t muxId, const std::string& udid) noexcept = 0;

    /// One that was attached is no longer there, or no longer heard of.
    virtual void detached(uint32_t muxId) noexcept = 0;

protected:
    ~MuxAudience() = default;
};

/// Asks the daemon to be told, for as long as it exists; the phones of a connection that has ended
/// are detached. After a failure it tries again at once, then a few times within a second or two.
/// After that it sleeps until something happens where the daemon's socket is to be; for a daemon
/// that is there and talks nonsense, or is on the network, it tries on ever more seldom. Waits have
/// no deadline, and each of them ends with the listener; only the look-up of a host's name is
/// waited for.
class MuxListener {
public:
    /// Begins, with a setting as in MuxAddress.h. Throws std::exception when there is no thread or
    /// descriptor to be had.
    MuxListener(const std::string& setting, MuxAudience& audience);

    MuxListener(const MuxListener&) = delete;
    MuxListener& operator=(const MuxListener&) = delete;

    /// Ends; the audience hears nothing more.
    ~MuxListener();

private:
    void run();

    enum class Outcome { Unreachable, Ended };

    /// One connection, from its beginning to its end.
    Outcome converse();

    UniqueDescriptor connect() const;
    bool finishConnecting(int socket, const SocketAddress& address) const;

    /// Reads one message; null if the connection has ended or sent something that is none.
    PlistRef receive(int socket) const;
    bool receive(int socket, std::span<std::byte> target) const;

    void hear(const PlistRef& message);
    void hearAttached(const PlistRef& message);
    void hearDetached(const PlistRef& message);
    void detachAll();

    /// Waits for the socket; false if the listener is to end.
    bool waitFor(int socket, short events) const;

    /// Waits until the next try is due; false if the listener is to end.
    bool pauseBeforeNextTry(Outcome outcome, const std::optional<SocketWatch>& watch);
    std::chrono::milliseconds pauseAfter(Outcome outcome, bool isWatching) const;

    const std::string setting_;
    MuxAudience& audience_;
    const UniqueDescriptor end_; // an event, readable once the listener is to end
    std::set<uint32_t> attached_;
    size_t failures_ = 0; // in a row
    std::thread thread_;  // last: it uses all of the above
};

} // namespace krl::provider
