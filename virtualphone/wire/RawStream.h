/// Bytes as they travel, and what may encrypt them.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace virtualphone {

/// What carries an encrypted stream. Both wait as long as it takes.
class RawStream {
public:
    virtual ~RawStream() = default;

    /// Number of bytes that came, 0 at the end.
    virtual size_t receive(std::span<char> target) = 0;

    /// Sends all of them; false when the connection has ended.
    virtual bool send(std::span<const char> bytes) = 0;
};

/// The phone's side of an encrypted stream. Says that it ends when it is destroyed.
class EncryptedStream : public RawStream {
public:
    virtual bool handshake() = 0;

    /// After the handshake: version and cipher suite, or why there are none.
    virtual std::string outcome() const = 0;
};

} // namespace virtualphone
