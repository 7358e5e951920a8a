// One byte stream to the phone: a connected socket on which every wait has an end.
#pragma once

#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <sys/uio.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <memory>
#include <span>

namespace krl::provider {

enum class IoResult {
    Done,    ///< every byte went or came
    Closed,  ///< the stream has ended, here or at the phone
    TimedOut ///< no byte moved for callTimeout()
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

/// Send and receive come from one thread at a time; shutdown() from any. Nothing here raises SIGPIPE
/// or depends on the descriptor's number or blocking mode.
class Channel {
public:
    explicit Channel(UniqueDescriptor descriptor);

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// Sends all parts in order, in one system call if the socket takes them. Changes the parts.
    [[nodiscard]] IoResult send(std::span<iovec> parts);

    /// Fills the target exactly. What it holds after a failure is not defined.
    [[nodiscard]] IoResult receive(std::span<std::byte> target);

    /// Shakes hands; from then on all bytes pass through the encryption, which was made for this
    /// channel. Each wait has the deadline of a wait for an answer.
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

private:
    IoResult sendEncrypted(std::span<const iovec> parts);
    IoResult receiveEncrypted(std::span<std::byte> target);
    IoResult receiveClear(std::span<std::byte> target);
    IoResult skipFarewell();

    /// Repeats a step of the encryption until it is done.
    template <typename Step>
    IoResult carryOut(Step step);

    /// Receives 1 to target.size() bytes and stores how many.
    IoResult receiveSome(std::span<std::byte> target, size_t& received);
    [[nodiscard]] IoResult waitFor(short events) const;

    UniqueDescriptor descriptor_;
    std::atomic<bool> ended_ = false;
    // Takes a small reply, header and body, with one system call.
    std::array<std::byte, 4096> buffer_;
    std::span<std::byte> buffered_;
    bool mayBringFarewell_ = false;
    std::unique_ptr<Encryption> encryption_; // last: its end is said over the socket
};

} // namespace krl::provider
