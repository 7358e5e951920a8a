/// The connection to the session bus over which distributed notifications travel. Internal.
#pragma once

#include "corefoundation/events/DistributedMessage.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace krl::cf {

/// A thread of its own keeps the connection as long as somebody uses it, so that a bus that does
/// not answer holds nobody up. Nothing but that thread touches the connection.
class DistributedBus {
public:
    /// Called on the bus's own thread.
    using Receiver = void (*)(const DistributedNotification& notification);

    explicit DistributedBus(Receiver receiver);
    DistributedBus(const DistributedBus&) = delete;
    DistributedBus& operator=(const DistributedBus&) = delete;
    ~DistributedBus();

    /// Connects and listens, as long as it was begun more often than ended. Returns when what
    /// anybody posts from now on is heard, when there is no bus, or after a second.
    void beginUse();

    /// Not to be called by the receiver: the last one waits for it to return.
    void endUse();

    /// Returns when the bus has taken it, when there is no bus, or after a second.
    void post(DistributedNotification notification);

private:
    class Connection;

    struct Request {
        uint64_t number;
        std::optional<DistributedNotification> notification; ///< nothing: only to be connected
    };

    void retainThread();
    /// Hands a request to the thread and waits for it, a second at most.
    void request(std::optional<DistributedNotification> notification);
    void start();
    void stop();
    void wake() const;
    void run();
    /// @return false when it is time to end.
    bool takeRequests(Connection& connection);
    /// Tells those who wait that all that was taken is done or lost.
    void settleRequests();

    const Receiver receiver_;
    const int wakeDescriptor_;

    std::mutex useMutex_; ///< guards useCount_ and thread_
    int useCount_ = 0;
    std::thread thread_;

    uint64_t lastTaken_ = 0; ///< the number of a request; the bus's thread alone uses it

    std::mutex requestMutex_; ///< guards all below
    std::condition_variable requestSettled_;
    bool isRunning_ = false;
    std::vector<Request> requests_;
    uint64_t lastRequest_ = 0;
    uint64_t lastSettledRequest_ = 0;
};

} // namespace krl::cf
