// One byte stream to the phone: a connected socket on which every wait has an end.
#pragma once

#include "mobiledevice/provider/wire/ReceiveBuffer.h"
#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace krl::provider {

enum class IoResult {
    Done,      ///< every byte went or came
    Closed,    ///< the stream has ended, here or at the phone
    Cancelled, ///< the stream has ended here, by cancel()
    TimedOut   ///< no byte moved for callTimeout(), or the exchange took too long as a whole
};

/// What a channel's bytes pass through while they are encrypted. No call waits.
class Encryption {
public:
    enum class Step {
        Done,
        WantsToReceive, ///< to be called again once the socket has something
        WantsToSend,    ///< to be called again once the socket takes something
        Closed          ///< the stream has ended, or what came is not to be trusted
    };

    /// Says to the phone that the encryption ends, if it had begun.
    virtual ~Encryption() = default;

    virtual Step handshake() = 0;

    /// Takes some bytes, at least one; flush() sends what has not gone yet.
    virtual Step send(std::span<const std::byte> bytes, size_t& sent) = 0;
    virtual Step flush() = 0;

    /// Brings some bytes, at least one.
    virtual Step receive(std::span<std::byte> target, size_t& received) = 0;
};

/// Send and receive come from one thread at a time; shutdown() and cancel() from any. Nothing here raises
/// SIGPIPE or depends on the descriptor's number or blocking mode.
class Channel {
public:
    explicit Channel(UniqueDescriptor descriptor);

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    using Clock = std::chrono::steady_clock;

    /// The slowest pace at which a phone that keeps moving is waited for.
    static constexpr uint64_t kLeastBytesPerSecond = 16 * 1024;

    /// Begins a request with all of its answer, which have an end as a whole: twice the deadline,
    /// and the time that what is sent and received takes at the slowest pace. Before the first one
    /// only silence is bounded.
    void beginExchange();

    /// The same with an end of its own.
    void beginExchange(Clock::time_point end) { exchangeEnd_ = end; }

    /// Connects the socket, which must not block by itself, within the deadline. Closed when nobody
    /// takes the connection.
    [[nodiscard]] IoResult connect(const sockaddr* address, socklen_t size);

    /// Sends all parts in order, in one system call if the socket takes them. Changes the parts.
    [[nodiscard]] IoResult send(std::span<iovec> parts);

    /// The same, but done early when something comes while the socket takes nothing: not all has
    /// gone then, and a call with what is left of the parts, perhaps none, goes on with it. What
    /// has come is held for receive().
    [[nodiscard]] IoResult sendUntilHeard(std::span<iovec>& parts, bool& hasGone);

    /// How many bytes receive() would give without waiting.
    [[nodiscard]] size_t heldBytes() const;

    /// Fills the target exactly. What it holds after a failure is not defined.
    [[nodiscard]] IoResult receive(std::span<std::byte> target);

    /// Shakes hands; from then on all bytes pass through the encryption, which was made for this
    /// channel. An exchange of its own.
    [[nodiscard]] IoResult beginEncryption(std::unique_ptr<Encryption> encryption);

    /// Goes back to clear. What the phone still says about the end of the encryption is passed
    /// over.
    void endEncryption();

    /// For the encryption: what is there, or as much as the socket takes, without waiting. As
    /// recv() and send().
    ssize_t receiveNow(std::span<std::byte> target);
    ssize_t sendNow(std::span<const std::byte> bytes);

    /// Ends the stream for good: blocked calls return at once, later ones give Closed.
    void shutdown() noexcept;

    /// As shutdown(), but for a stream that had not ended yet calls give Cancelled.
    void cancel() noexcept;

    /// Whether shutdown() or cancel() was called.
    [[nodiscard]] bool hasEnded() const { return state_ != State::Open; }

    /// What a call gives on a stream that has ended.
    [[nodiscard]] IoResult endResult() const;

private:
    enum class State { Open, Ended, Cancelled };

    void end(State state) noexcept;

    /// Gives the exchange the time that these bytes take.
    void allowFor(size_t bytes);

    ReceiveBuffer& held() { return encryption_ ? decrypted_ : raw_; }

    /// Without waiting: sends parts in order and takes what has gone off them.
    Encryption::Step trySend(std::span<iovec>& parts);
    Encryption::Step trySendClear(std::span<iovec>& parts);

    /// Without waiting: receives 1 to target.size() bytes and stores how many, or holds them.
    Encryption::Step tryReceive(std::span<std::byte> target, size_t& received);
    Encryption::Step tryReceiveClear(std::span<std::byte> target, size_t& received);
    Encryption::Step tryHold();

    IoResult receiveExactly(std::span<std::byte> target);
    IoResult skipFarewell();

    /// Repeats what does not wait until it is done.
    template <typename Attempt>
    IoResult carryOut(Attempt attempt);

    /// As recv(), but not interrupted.
    ssize_t receiveFromSocket(std::span<std::byte> target);

    IoResult finishConnecting();
    [[nodiscard]] Clock::time_point nextDeadline() const;
    /// Waits for some of the events; `ready`, if it is wanted, becomes those that are there.
    [[nodiscard]] IoResult waitFor(short events, short* ready = nullptr) const;

    UniqueDescriptor descriptor_;
    std::atomic<State> state_ = State::Open;
    Clock::time_point exchangeEnd_ = Clock::time_point::max();
    ReceiveBuffer raw_;
    ReceiveBuffer decrypted_;
    bool mayBringFarewell_ = false;
    std::unique_ptr<Encryption> encryption_; // last: its end is said over the socket
};

} // namespace krl::provider
