// What is asked of the mux daemon; each question is a connection of its own.
#pragma once

#include "mobiledevice/provider/wire/Channel.h"
#include "mobiledevice/provider/wire/PlistRef.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace krl::provider {

/// Every function returns 0, or a status: kAMDNoMuxDaemon when there is no daemon, kAMDTimedOut
/// when it is silent, kAMDNotConnected when it ends the connection or answers with nonsense,
/// kAMDCancelled.
class MuxClient {
public:
    /// Is told of each channel before anybody waits on it, so that another thread can end it.
    using Keeper = std::function<void(const std::shared_ptr<Channel>& channel)>;

    /// What is asked has this end, if it has one, and otherwise that of every exchange.
    using End = std::optional<Channel::Clock::time_point>;

    explicit MuxClient(Keeper keeper, End end = std::nullopt);

    /// A tunnel to a port of a phone; kAMDNotConnected when the phone or the port is not there.
    [[nodiscard]] int32_t connect(uint32_t muxId, uint16_t port,
                                  std::shared_ptr<Channel>& tunnel) const;

    /// The contents of the pair record that this computer holds for a phone; kAMDNotPaired when it
    /// holds none.
    [[nodiscard]] int32_t readPairRecord(const std::string& udid,
                                         std::vector<std::byte>& contents) const;

    /// Has the daemon keep a pair record for the phone at this place, or forget the one it keeps;
    /// kAMDPairRecordNotKept when it will not.
    [[nodiscard]] int32_t savePairRecord(uint32_t muxId, const std::string& udid,
                                         const std::string& contents) const;
    [[nodiscard]] int32_t deletePairRecord(const std::string& udid) const;

    /// The numbers of the phones on USB.
    [[nodiscard]] int32_t listDevices(std::vector<uint32_t>& muxIds) const;

    /// This computer's own identity towards phones.
    [[nodiscard]] int32_t readSystemBuid(std::string& buid) const;

private:
    /// Asks on a new connection, which the answer leaves open.
    int32_t ask(const PlistRef& request, std::shared_ptr<Channel>& channel, PlistRef& answer) const;
    int32_t reachDaemon(std::shared_ptr<Channel>& channel) const;

    /// For requests whose answer is consent or none; `refused` is the status of a refusal.
    int32_t askConsent(const PlistRef& request, int32_t refused) const;

    const Keeper keeper_;
    const End end_;
};

} // namespace krl::provider
