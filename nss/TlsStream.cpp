#include "nss/TlsStream.h"

#include <prnetdb.h>
#include <secerr.h>
#include <ssl.h>
#include <sslerr.h>
#include <sslproto.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

namespace krl::nss {

// The lowest layer of a stream's NSPR descriptor: hands what NSS reads and writes to the transport.
struct TlsStream::Layer {
    static TlsStream& streamOf(PRFileDesc* descriptor) {
        return *reinterpret_cast<TlsStream*>(descriptor->secret);
    }

    static PRInt32 failed() {
        PR_SetError(errno == EAGAIN ? PR_WOULD_BLOCK_ERROR : PR_CONNECT_RESET_ERROR, errno);
        return -1;
    }

    static PRInt32 receive(PRFileDesc* descriptor, void* target, PRInt32 size, PRIntn,
                           PRIntervalTime) {
        const ssize_t received =
            streamOf(descriptor)
                .transport_.receive({static_cast<std::byte*>(target), static_cast<size_t>(size)});
        return received < 0 ? failed() : static_cast<PRInt32>(received);
    }

    // Takes everything and keeps what the transport does not take: NSS itself goes on with a
    // handshake message that it could not send only when it has another one to send, and leaks
    // one that it could not send at all. A transport that has ended shows in the next step.
    static PRInt32 send(PRFileDesc* descriptor, const void* bytes, PRInt32 size, PRIntn,
                        PRIntervalTime) {
        TlsStream& stream = streamOf(descriptor);
        const auto* first = static_cast<const std::byte*>(bytes);
        stream.unsent_.insert(stream.unsent_.end(), first, first + size);
        stream.sendKept();
        return size;
    }

    static PRInt32 read(PRFileDesc* descriptor, void* target, PRInt32 size) {
        return receive(descriptor, target, size, 0, 0);
    }

    static PRInt32 write(PRFileDesc* descriptor, const void* bytes, PRInt32 size) {
        return send(descriptor, bytes, size, 0, 0);
    }

    // The default methods pass calls on to a layer below, and there is none: whatever NSS may call
    // stands here. NSS takes a descriptor without a peer for one that is not connected.
    static PRStatus peerName(PRFileDesc*, PRNetAddr* address) {
        return PR_InitializeNetAddr(PR_IpAddrLoopback, 0, address);
    }

    static PRStatus option(PRFileDesc*, PRSocketOptionData* data) {
        if (data->option != PR_SockOpt_Nonblocking) {
            PR_SetError(PR_NOT_IMPLEMENTED_ERROR, 0);
            return PR_FAILURE;
        }
        data->value.non_blocking = PR_TRUE;
        return PR_SUCCESS;
    }

    static PRStatus setOption(PRFileDesc*, const PRSocketOptionData*) { return PR_SUCCESS; }

    // NSS calls this when it gives a handshake up; the transport ends by its owner's hand.
    static PRStatus shutdown(PRFileDesc*, PRIntn) { return PR_SUCCESS; }

    static PRInt16 poll(PRFileDesc*, PRInt16 flags, PRInt16* ready) {
        *ready = flags;
        return flags;
    }

    static PRStatus close(PRFileDesc* descriptor) {
        descriptor->dtor(descriptor);
        return PR_SUCCESS;
    }

    static const PRIOMethods& methods() {
        static const PRIOMethods layer = [] {
            PRIOMethods own = *PR_GetDefaultIOMethods();
            own.recv = receive;
            own.send = send;
            own.read = read;
            own.write = write;
            own.getpeername = peerName;
            own.getsockname = peerName;
            own.getsocketoption = option;
            own.setsocketoption = setOption;
            own.shutdown = shutdown;
            own.poll = poll;
            own.close = close;
            return own;
        }();
        return layer;
    }

    static PRDescIdentity identity() {
        static const PRDescIdentity own = PR_GetUniqueIdentity("KRLVesk transport");
        return own;
    }

    // ------------------------------------------------------------------ hooks

    static SECStatus checkCertificate(void* context, PRFileDesc* descriptor, PRBool, PRBool) {
        const TlsStream& stream = *static_cast<const TlsStream*>(context);
        const Certificate shown(SSL_PeerCertificate(descriptor));
        const PRErrorCode refusal =
            shown && stream.setup_.check ? stream.setup_.check(*shown) : SEC_ERROR_UNTRUSTED_CERT;
        if (refusal != 0) {
            PR_SetError(refusal, 0);
            return SECFailure;
        }
        return SECSuccess;
    }

    static SECStatus showCertificate(void* context, PRFileDesc*, CERTDistNames*,
                                     CERTCertificate** certificate, SECKEYPrivateKey** key) {
        const TlsStream& stream = *static_cast<const TlsStream*>(context);
        if (!stream.setup_.certificate || !stream.setup_.key) {
            return SECFailure; // goes on without one, and the server says what it thinks of that
        }
        *certificate = CERT_DupCertificate(stream.setup_.certificate.get());
        *key = SECKEY_CopyPrivateKey(stream.setup_.key.get());
        return SECSuccess;
    }
};

namespace {

PRInt32 sizeOf(size_t bytes) {
    return static_cast<PRInt32>(std::min<size_t>(bytes, std::numeric_limits<PRInt32>::max()));
}

void enable(PRFileDesc* descriptor, int suite) {
    SSL_CipherPrefSet(descriptor, suite, PR_TRUE);
}

// Exactly the suites that are asked for: NSS switches others on by itself.
void chooseSuites(PRFileDesc* descriptor, bool withModernSuites) {
    const PRUint16* implemented = SSL_GetImplementedCiphers();
    for (PRUint16 i = 0; i < SSL_GetNumImplementedCiphers(); ++i) {
        SSL_CipherPrefSet(descriptor, implemented[i], PR_FALSE);
    }
    for (const int suite : kOldSuites) {
        enable(descriptor, suite);
    }
    if (withModernSuites) {
        for (const int suite : kModernSuites) {
            enable(descriptor, suite);
        }
    }
}

bool setOption(PRFileDesc* descriptor, PRInt32 option, PRIntn value) {
    return SSL_OptionSet(descriptor, option, value) == SECSuccess;
}

const char* versionName(PRUint16 version) {
    switch (version) {
    case SSL_LIBRARY_VERSION_3_0:
        return "SSL 3.0";
    case SSL_LIBRARY_VERSION_TLS_1_0:
        return "TLS 1.0";
    case SSL_LIBRARY_VERSION_TLS_1_1:
        return "TLS 1.1";
    case SSL_LIBRARY_VERSION_TLS_1_2:
        return "TLS 1.2";
    default:
        return "TLS";
    }
}

} // namespace

TlsStream::TlsStream(Transport& transport, StreamSetup setup)
    : transport_(transport), setup_(std::move(setup)) {}

TlsStream::~TlsStream() = default;

std::unique_ptr<TlsStream> TlsStream::client(Transport& transport, ClientSetup setup) {
    std::unique_ptr<TlsStream> stream(new TlsStream(transport, std::move(setup)));
    return stream->open(/*asServer=*/false) ? std::move(stream) : nullptr;
}

std::unique_ptr<TlsStream> TlsStream::server(Transport& transport, ServerSetup setup) {
    std::unique_ptr<TlsStream> stream(new TlsStream(transport, std::move(setup)));
    return stream->open(/*asServer=*/true) ? std::move(stream) : nullptr;
}

bool TlsStream::open(bool asServer) {
    const OldProtocols allowed;
    FileDescriptor layer(PR_CreateIOLayerStub(Layer::identity(), &Layer::methods()));
    if (!layer) {
        return false;
    }
    layer->secret = reinterpret_cast<PRFilePrivate*>(this);
    PRFileDesc* secured = SSL_ImportFD(nullptr, layer.get());
    if (secured == nullptr) {
        return false;
    }
    descriptor_ = std::move(layer); // NSS's layer now stands on it, under the same address
    return configure(asServer);
}

bool TlsStream::configure(bool asServer) {
    PRFileDesc* descriptor = descriptor_.get();
    const PRIntn server = asServer ? PR_TRUE : PR_FALSE;
    chooseSuites(descriptor, setup_.withModernSuites);
    const SSLVersionRange versions{setup_.leastVersion, setup_.highestVersion};
    if (!setOption(descriptor, SSL_SECURITY, PR_TRUE) ||
        !setOption(descriptor, SSL_HANDSHAKE_AS_SERVER, server) ||
        !setOption(descriptor, SSL_HANDSHAKE_AS_CLIENT, !server) ||
        !setOption(descriptor, SSL_NO_CACHE, PR_TRUE) ||
        !setOption(descriptor, SSL_ENABLE_SESSION_TICKETS, PR_FALSE) ||
        !setOption(descriptor, SSL_ENABLE_RENEGOTIATION, SSL_RENEGOTIATE_NEVER) ||
        SSL_VersionRangeSet(descriptor, &versions) != SECSuccess ||
        SSL_AuthCertificateHook(descriptor, Layer::checkCertificate, this) != SECSuccess) {
        return false;
    }
    if (!asServer) {
        return SSL_GetClientAuthDataHook(descriptor, Layer::showCertificate, this) == SECSuccess &&
               SSL_ResetHandshake(descriptor, server) == SECSuccess;
    }
    return setOption(descriptor, SSL_REQUEST_CERTIFICATE, PR_TRUE) &&
           setOption(descriptor, SSL_REQUIRE_CERTIFICATE, SSL_REQUIRE_ALWAYS) &&
           SSL_ConfigServerCert(descriptor, setup_.certificate.get(), setup_.key.get(), nullptr,
                                0) == SECSuccess &&
           SSL_ResetHandshake(descriptor, server) == SECSuccess;
}

TlsStep TlsStream::handshake() {
    if (const TlsStep sent = flush(); sent != TlsStep::Done) {
        return sent;
    }
    // Once it is done NSS would wait for another.
    return isOpen_ ? TlsStep::Done : continueHandshake();
}

TlsStep TlsStream::continueHandshake() {
    if (!shortKeys_) {
        shortKeys_.emplace(setup_.peerKeyBits);
    }
    const bool isDone = SSL_ForceHandshake(descriptor_.get()) == SECSuccess;
    const TlsStep step = isDone ? TlsStep::Done : failed();
    if (step == TlsStep::WantsToReceive || step == TlsStep::WantsToSend) {
        return step;
    }
    shortKeys_.reset();
    isOpen_ = isDone;
    return isDone ? flush() : step;
}

bool TlsStream::sendKept() {
    while (!unsent_.empty()) {
        const ssize_t sent = transport_.send(unsent_);
        if (sent < 0) {
            return false;
        }
        unsent_.erase(unsent_.begin(), unsent_.begin() + sent);
    }
    return true;
}

TlsStep TlsStream::flush() {
    if (sendKept()) {
        return TlsStep::Done;
    }
    return errno == EAGAIN ? TlsStep::WantsToSend : TlsStep::Ended;
}

TlsStep TlsStream::send(std::span<const std::byte> bytes, size_t& sent) {
    if (const TlsStep before = flush(); before != TlsStep::Done) {
        return before;
    }
    const PRInt32 count =
        PR_Send(descriptor_.get(), bytes.data(), sizeOf(bytes.size()), 0, PR_INTERVAL_NO_TIMEOUT);
    if (count < 0) {
        return failed();
    }
    sent = static_cast<size_t>(count);
    return TlsStep::Done;
}

TlsStep TlsStream::receive(std::span<std::byte> target, size_t& received) {
    const PRInt32 count =
        PR_Recv(descriptor_.get(), target.data(), sizeOf(target.size()), 0, PR_INTERVAL_NO_TIMEOUT);
    if (count < 0) {
        return failed();
    }
    received = static_cast<size_t>(count);
    return count == 0 ? TlsStep::Ended : TlsStep::Done;
}

TlsStep TlsStream::failed() {
    error_ = PR_GetError();
    switch (error_) {
    case PR_WOULD_BLOCK_ERROR:
        return unsent_.empty() ? TlsStep::WantsToReceive : TlsStep::WantsToSend;
    case PR_END_OF_FILE_ERROR:
    case PR_CONNECT_RESET_ERROR:
    case PR_CONNECT_ABORTED_ERROR:
        return TlsStep::Ended;
    default:
        return TlsStep::Failed;
    }
}

std::string TlsStream::description() const {
    SSLChannelInfo channel{};
    SSLCipherSuiteInfo suite{};
    if (SSL_GetChannelInfo(descriptor_.get(), &channel, sizeof channel) != SECSuccess ||
        SSL_GetCipherSuiteInfo(channel.cipherSuite, &suite, sizeof suite) != SECSuccess) {
        return "";
    }
    return std::string(versionName(channel.protocolVersion)) + ", " + suite.cipherSuiteName;
}

} // namespace krl::nss
