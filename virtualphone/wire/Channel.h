/// One client's socket: exact reads through a buffer, whole writes, waits that end with it.
#pragma once

#include "virtualphone/wire/DelayLine.h"
#include "virtualphone/wire/Faults.h"
#include "virtualphone/wire/Packet.h"
#include "virtualphone/wire/RawStream.h"
#include "virtualphone/wire/UniqueFd.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <span>

namespace virtualphone {

/// Used by the thread of its connection; only shutDown, cut and sendNow may be called from
/// others.
class Channel {
public:
    explicit Channel(UniqueFd socket);

    /// From now on bytes count for this service's byte faults.
    void meter(Faults& faults, Service service);

    /// Up to this many bytes, straight from the buffer; waits for at least one. Valid until the
    /// next call. Empty when the connection has ended.
    std::span<const char> take(size_t most);

    /// Reads exactly this many bytes; false when the connection ends before.
    bool read(std::span<char> bytes);

    /// Reads and forgets this many bytes.
    bool skip(uint64_t bytes);

    /// Writes everything, waiting as long as the client needs; false when the connection has ended.
    bool write(std::span<const char> bytes);

    /// Writes everything once there is nothing more to do than to wait: an answer does not leave
    /// before requests that are here already are dealt with. A client that sends many of them ahead
    /// is woken less often.
    bool writeSoon(std::span<const char> bytes);

    /// Writes what writeSoon still holds; all functions that wait or write do.
    bool flush();

    /// Writes everything without waiting. A client that has not made room by reading loses its
    /// connection.
    void sendNow(std::span<const char> bytes);

    /// False when nothing arrives in this time (negative: for ever); the end counts as arriving.
    bool waitForInput(std::chrono::milliseconds timeout);

    /// Sleeps; false when the connection ended meanwhile.
    bool pause(std::chrono::nanoseconds time);

    /// Waits until the descriptor is readable; false when the connection ended meanwhile.
    bool waitFor(int descriptor);

    /// Waits for the connection's end.
    void waitForEnd();

    /// From now on bytes are encrypted by a stream whose handshake is done.
    void encrypt(std::unique_ptr<EncryptedStream> stream);

    /// Says that the encryption ends, if there is one, and goes back to clear.
    void endEncryption();

    bool isEncrypted() const { return encryption_ != nullptr; }

    /// After that: passes over what the client has said about the end. False when the connection
    /// ends.
    bool skipFarewell();

    /// For the encryption: bytes as they travel, 0 or false at the end.
    size_t receiveRaw(std::span<char> target);
    bool sendRaw(std::span<const char> bytes);

    /// From now on bytes travel for a while, both ways, and the end does. False when the system has
    /// no means for it, or the connection has ended.
    bool lengthen(std::chrono::nanoseconds delay);

    /// Ends the connection for both sides. The descriptor stays, so that no number is reused.
    void shutDown();

    /// The same at once: what travels is lost.
    void cut();

    /// Waits until what travels, and the end behind it, has arrived.
    void waitForArrival();

private:
    bool fill();

    UniqueFd socket_;
    std::mutex endMutex_; // whoever ends the connection finds the socket and the line together
    std::unique_ptr<DelayLine> line_;
    std::atomic<bool> isShutDown_ = false; // data still queued in the socket is not taken any more
    Faults* faults_ = nullptr;
    Service service_ = Service::Usbmux;
    std::unique_ptr<char[]> buffer_;
    size_t begin_ = 0;
    size_t end_ = 0;
    Packet held_;
    bool mayBringFarewell_ = false;
    std::unique_ptr<EncryptedStream> encryption_; // last: its end is said over the socket
};

} // namespace virtualphone
