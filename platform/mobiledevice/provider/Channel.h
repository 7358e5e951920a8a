// One byte stream to the phone: a connected socket on which every wait has an end.
#ifndef KRL_PROVIDER_CHANNEL_H
#define KRL_PROVIDER_CHANNEL_H

#include "UniqueDescriptor.h"

#include <sys/uio.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <span>

namespace krl::provider {

enum class IoResult {
    Done,    ///< every byte went or came
    Closed,  ///< the stream has ended, here or at the phone
    TimedOut ///< no byte moved for callTimeout()
};

/**
 * Send and receive come from one thread at a time; shutdown() from any. Nothing here raises SIGPIPE
 * or depends on the descriptor's number or blocking mode.
 */
class Channel {
public:
    explicit Channel(UniqueDescriptor descriptor);

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /** Sends all parts in order, in one system call if the socket takes them. Changes the parts. */
    [[nodiscard]] IoResult send(std::span<iovec> parts);

    /** Fills the target exactly. What it holds after a failure is not defined. */
    [[nodiscard]] IoResult receive(std::span<std::byte> target);

    /** Ends the stream for good: blocked calls return at once, later ones give Closed. */
    void shutdown() noexcept;

private:
    /** Receives 1 to target.size() bytes and stores how many. */
    IoResult receiveSome(std::span<std::byte> target, size_t& received);
    [[nodiscard]] IoResult waitFor(short events) const;

    UniqueDescriptor descriptor_;
    std::atomic<bool> ended_ = false;
    // Takes a small reply, header and body, with one system call.
    std::array<std::byte, 4096> buffer_;
    std::span<std::byte> buffered_;
};

} // namespace krl::provider

#endif
