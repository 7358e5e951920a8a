// A TLS or SSL 3.0 stream over whatever carries bytes.
#pragma once

#include "nss/Owners.h"
#include "nss/PeerTurn.h"
#include "nss/Runtime.h"

#include <prerror.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace krl::nss {

/// What carries a stream's bytes. Nothing here raises SIGPIPE.
class Transport {
public:
    virtual ~Transport() = default;

    /// How many bytes came; 0 at the end; -1 with errno, EAGAIN when it would have to wait.
    virtual ssize_t receive(std::span<std::byte> target) = 0;

    /// How many bytes went; -1 with errno, EAGAIN when it would have to wait.
    virtual ssize_t send(std::span<const std::byte> bytes) = 0;
};

enum class TlsStep {
    Done,
    WantsToReceive, ///< to be called again once the transport has something
    WantsToSend,    ///< to be called again once the transport takes something
    Ended,          ///< the other side has ended the stream
    Failed          ///< TlsStream::error() says why
};

/// Looks at the other side's certificate: 0, or the NSS error that refuses it.
using CertificateCheck = std::function<PRErrorCode(const CERTCertificate& shown)>;

/// Versions are 0x0300 for SSL 3.0, 0x0301 for TLS 1.0 and so on.
struct StreamSetup {
    uint16_t leastVersion = 0;
    uint16_t highestVersion = 0;
    bool withModernSuites = false;
    Certificate certificate; ///< shown to the other side; a client may have none
    PrivateKey key;
    int peerKeyBits = 0; ///< the other side's shortest RSA key that is to be taken
    CertificateCheck check;
    std::optional<PeerTurn> turn; ///< held while the stream lives
};

struct ClientSetup : StreamSetup {};

/// The client must show a certificate.
struct ServerSetup : StreamSetup {};

/// One thread at a time. start() must have been true. There is one handshake in a stream's life: a
/// new one that the other side asks for ends it.
class TlsStream {
public:
    /// Null when NSS refuses the setup. The transport must outlive the stream.
    static std::unique_ptr<TlsStream> client(Transport& transport, ClientSetup setup);
    static std::unique_ptr<TlsStream> server(Transport& transport, ServerSetup setup);

    /// Says that the stream ends here, if its handshake was done and the transport takes it.
    ~TlsStream();
    TlsStream(const TlsStream&) = delete;
    TlsStream& operator=(const TlsStream&) = delete;

    TlsStep handshake();

    /// Takes some of the bytes, at least one, and stores how many. They have gone once flush() is
    /// done.
    TlsStep send(std::span<const std::byte> bytes, size_t& sent);

    /// Sends what was taken and has not gone yet.
    TlsStep flush();

    /// Receives some bytes, at least one, and stores how many.
    TlsStep receive(std::span<std::byte> target, size_t& received);

    /// The NSS or NSPR error of the last step that failed.
    [[nodiscard]] PRErrorCode error() const { return error_; }

    /// What the handshake came to, as in "SSL 3.0, TLS_RSA_WITH_AES_128_CBC_SHA".
    [[nodiscard]] std::string description() const;

private:
    struct Layer;

    TlsStream(Transport& transport, StreamSetup setup);
    bool open(bool asServer);
    bool configure(bool asServer);
    TlsStep continueHandshake();
    bool sendKept();
    TlsStep failed();

    Transport& transport_;
    StreamSetup setup_;
    std::vector<std::byte> unsent_;
    bool isOpen_ = false;
    std::optional<ShortKeys> shortKeys_; // for the length of the handshake
    PRErrorCode error_ = 0;
    FileDescriptor descriptor_;
};

} // namespace krl::nss
