#include "corefoundation/events/DistributedBus.h"

#include "corefoundation/events/DistributedWire.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <time.h>
#include <unistd.h>
#include <utility>

namespace krl::cf {
namespace {

constexpr std::chrono::seconds kLongestRequest{1};

/// Keeps signals from the threads that are started meanwhile: they are for the application's own.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &original_);
    }

    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &original_, nullptr); }

    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t original_;
};

/// How long to poll until a moment of the bus's clock, in milliseconds; -1: for ever.
int pollTimeout(uint64_t momentUs) {
    if (momentUs == UINT64_MAX) {
        return -1;
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t nowUs =
        static_cast<uint64_t>(now.tv_sec) * 1000000U + static_cast<uint64_t>(now.tv_nsec) / 1000U;
    const uint64_t leftMs = momentUs > nowUs ? (momentUs - nowUs + 999U) / 1000U : 0;
    return static_cast<int>(std::min<uint64_t>(leftMs, INT_MAX));
}

} // namespace

/// The connection, which may be missing. Never waits but in wait.
class DistributedBus::Connection {
public:
    explicit Connection(Receiver receiver) : receiver_(receiver) {}

    ~Connection() { close(); }

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void openUnlessOpen() {
        if (bus_ == nullptr && (sd_bus_open_user(&bus_) < 0 || listen() < 0)) {
            close();
        }
    }

    void send(const DistributedNotification& notification) {
        if (bus_ != nullptr) {
            // One that the bus cannot carry is lost; a connection that is lost shows in process.
            sendNotification(bus_, notification);
        }
    }

    /// Reads and writes all that can be now.
    void process() {
        int status = 1;
        while (bus_ != nullptr && status > 0) {
            status = sd_bus_process(bus_, nullptr);
        }
        if (status < 0) {
            close();
        }
    }

    /// Whether the bus listens for us and has taken all that was sent, or never will.
    bool isSettled() {
        uint64_t queued = 0;
        return bus_ == nullptr ||
               (isListening_ && (sd_bus_get_n_queued_write(bus_, &queued) < 0 || queued == 0));
    }

    /// Waits for work, or for the other descriptor to be readable.
    void wait(int otherDescriptor) {
        pollfd descriptors[2] = {{otherDescriptor, POLLIN, 0}, {-1, 0, 0}};
        uint64_t timeoutUs = UINT64_MAX;
        if (bus_ != nullptr) {
            const int events = sd_bus_get_events(bus_);
            descriptors[1] = {sd_bus_get_fd(bus_), static_cast<short>(std::max(events, 0)), 0};
            sd_bus_get_timeout(bus_, &timeoutUs);
        }
        poll(descriptors, 2, pollTimeout(timeoutUs));
    }

private:
    int listen() {
        return sd_bus_match_signal_async(bus_, nullptr, nullptr, wire::kPath, wire::kInterface,
                                         wire::kMember, handle, noteListening, this);
    }

    static int noteListening(sd_bus_message* reply, void* connection, sd_bus_error*) {
        static_cast<Connection*>(connection)->isListening_ =
            sd_bus_message_is_method_error(reply, nullptr) == 0;
        return 0;
    }

    static int handle(sd_bus_message* message, void* connection, sd_bus_error*) {
        if (const auto notification = readNotification(message)) {
            static_cast<Connection*>(connection)->receiver_(*notification);
        }
        return 0;
    }

    void close() {
        bus_ = sd_bus_close_unref(bus_);
        isListening_ = false;
    }

    const Receiver receiver_;
    sd_bus* bus_ = nullptr;
    bool isListening_ = false;
};

DistributedBus::DistributedBus(Receiver receiver)
    : receiver_(receiver), wakeDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

DistributedBus::~DistributedBus() {
    stop();
    close(wakeDescriptor_);
}

void DistributedBus::beginUse() {
    retainThread();
    request({});
}

void DistributedBus::endUse() {
    const std::lock_guard lock(useMutex_);
    if (--useCount_ == 0) {
        stop();
    }
}

void DistributedBus::post(DistributedNotification notification) {
    retainThread();
    request(std::move(notification));
    endUse();
}

void DistributedBus::retainThread() {
    const std::lock_guard lock(useMutex_);
    if (++useCount_ == 1) {
        start();
    }
}

void DistributedBus::request(std::optional<DistributedNotification> notification) {
    std::unique_lock lock(requestMutex_);
    const uint64_t number = ++lastRequest_;
    requests_.push_back({number, std::move(notification)});
    wake();
    requestSettled_.wait_for(lock, kLongestRequest,
                             [&] { return !isRunning_ || lastSettledRequest_ >= number; });
}

void DistributedBus::start() {
    {
        const std::lock_guard lock(requestMutex_);
        isRunning_ = true;
        requests_.clear();
    }
    try {
        const SignalsBlocked signalsBlocked;
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        const std::lock_guard lock(requestMutex_);
        isRunning_ = false; // as without a bus
    }
}

void DistributedBus::stop() {
    {
        const std::lock_guard lock(requestMutex_);
        isRunning_ = false;
    }
    wake();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void DistributedBus::wake() const {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wakeDescriptor_, &one, sizeof one);
}

void DistributedBus::run() {
    Connection connection(receiver_);
    while (takeRequests(connection)) {
        connection.process();
        if (connection.isSettled()) {
            settleRequests();
        }
        connection.wait(wakeDescriptor_);
    }
}

bool DistributedBus::takeRequests(Connection& connection) {
    uint64_t wakeUps = 0;
    [[maybe_unused]] const ssize_t size = read(wakeDescriptor_, &wakeUps, sizeof wakeUps);
    std::vector<Request> requests;
    {
        const std::lock_guard lock(requestMutex_);
        if (!isRunning_) {
            return false;
        }
        requests = std::exchange(requests_, {});
    }
    for (const Request& request : requests) {
        connection.openUnlessOpen();
        if (request.notification) {
            connection.send(*request.notification);
        }
        lastTaken_ = request.number;
    }
    return true;
}

void DistributedBus::settleRequests() {
    {
        const std::lock_guard lock(requestMutex_);
        lastSettledRequest_ = lastTaken_;
    }
    requestSettled_.notify_all();
}

} // namespace krl::cf
