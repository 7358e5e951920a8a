#include "mobiledevice/provider/security/TlsSecurity.h"

#include "mobiledevice/provider/wire/CallTimeout.h"

#include "nss/Certificates.h"
#include "nss/Keys.h"
#include "nss/Runtime.h"
#include "nss/TlsStream.h"
#include <MobileDevice/MobileDevice.h>

#include <secerr.h>
#include <sslerr.h>
#include <sslproto.h>

#include <chrono>
#include <memory>
#include <optional>
#include <utility>

namespace krl::provider {

namespace {

/// A stream of NSS's on a channel.
class StreamEncryption final : public Encryption, private nss::Transport {
public:
    explicit StreamEncryption(Channel& channel) : channel_(channel) {}

    bool open(nss::ClientSetup setup) {
        stream_ = nss::TlsStream::client(*this, std::move(setup));
        return stream_ != nullptr;
    }

    Step handshake() override { return stepOf(stream_->handshake()); }

    Step send(std::span<const std::byte> bytes, size_t& sent) override {
        return stepOf(stream_->send(bytes, sent));
    }

    Step flush() override { return stepOf(stream_->flush()); }

    Step receive(std::span<std::byte> target, size_t& received) override {
        return stepOf(stream_->receive(target, received));
    }

    /// Why the last step was not done; 0 when the phone ended the stream.
    [[nodiscard]] PRErrorCode error() const { return hasFailed_ ? stream_->error() : 0; }

private:
    Step stepOf(nss::TlsStep step) {
        hasFailed_ = step == nss::TlsStep::Failed;
        switch (step) {
        case nss::TlsStep::Done:
            return Step::Done;
        case nss::TlsStep::WantsToReceive:
            return Step::WantsToReceive;
        case nss::TlsStep::WantsToSend:
            return Step::WantsToSend;
        case nss::TlsStep::Ended:
        case nss::TlsStep::Failed:
            return Step::Closed;
        }
        return Step::Closed;
    }

    ssize_t receive(std::span<std::byte> target) override { return channel_.receiveNow(target); }

    ssize_t send(std::span<const std::byte> bytes) override { return channel_.sendNow(bytes); }

    Channel& channel_;
    bool hasFailed_ = false;
    std::unique_ptr<nss::TlsStream> stream_;
};

// The authority of a pair record is of the record's own making and signs whatever it is given, so
// what counts is the key: the one that the phone was paired with.
PRErrorCode check(const CERTCertificate& shown, const CERTCertificate& paired) {
    if (!nss::haveSameKey(&shown, &paired)) {
        return SEC_ERROR_UNTRUSTED_CERT;
    }
    return nss::isValidNow(&shown) ? 0 : SEC_ERROR_EXPIRED_CERTIFICATE;
}

nss::ClientSetup setupFor(Protocol protocol) {
    nss::ClientSetup setup;
    if (protocol == Protocol::Ssl3) {
        setup.leastVersion = SSL_LIBRARY_VERSION_3_0;
        setup.highestVersion = SSL_LIBRARY_VERSION_3_0;
        return setup;
    }
    setup.leastVersion = SSL_LIBRARY_VERSION_TLS_1_0;
    // With TLS 1.3 a phone's refusal would come after the handshake.
    setup.highestVersion = SSL_LIBRARY_VERSION_TLS_1_2;
    setup.withModernSuites = true;
    return setup;
}

int32_t statusOf(PRErrorCode error, bool hostIsValid) {
    switch (error) {
    case 0:
        return kAMDNotConnected;
    case SEC_ERROR_UNTRUSTED_CERT:
        return kAMDWrongCertificate;
    case SEC_ERROR_EXPIRED_CERTIFICATE:
    case SSL_ERROR_EXPIRED_CERT_ALERT:
        return kAMDCertificateExpired;
    case SSL_ERROR_BAD_CERT_ALERT:
    case SSL_ERROR_UNSUPPORTED_CERT_ALERT:
    case SSL_ERROR_REVOKED_CERT_ALERT:
    case SSL_ERROR_CERTIFICATE_UNKNOWN_ALERT:
    case SSL_ERROR_UNKNOWN_CA_ALERT:
    case SSL_ERROR_ACCESS_DENIED_ALERT:
        return hostIsValid ? kAMDCertificateRefused : kAMDCertificateExpired;
    case SSL_ERROR_UNSUPPORTED_VERSION:
    case SSL_ERROR_PROTOCOL_VERSION_ALERT:
    case SSL_ERROR_HANDSHAKE_FAILURE_ALERT:
    case SSL_ERROR_ILLEGAL_PARAMETER_ALERT:
        return nss::speaksSsl3() ? kAMDHandshakeFailed : kAMDNoSsl3;
    default:
        return kAMDHandshakeFailed;
    }
}

int32_t statusOf(IoResult handshake, const StreamEncryption& stream, bool hostIsValid) {
    switch (handshake) {
    case IoResult::Done:
        return 0;
    case IoResult::TimedOut:
        return kAMDTimedOut;
    case IoResult::Cancelled:
        return kAMDCancelled;
    case IoResult::Closed:
        return statusOf(stream.error(), hostIsValid);
    }
    return kAMDHandshakeFailed;
}

// As long as another phone's session has the place of this phone's certificate.
int32_t waitForTurn(const Channel& channel, const CERTCertificate& paired,
                    std::optional<nss::PeerTurn>& turn) {
    const auto deadline = std::chrono::steady_clock::now() + callTimeout();
    const bool isTaken = nss::PeerTurn::take(nss::PeerTurn::Side::Client, {&paired}, turn, [&] {
        return !channel.hasEnded() && std::chrono::steady_clock::now() < deadline;
    });
    if (isTaken) {
        return 0;
    }
    if (!channel.hasEnded()) {
        return kAMDTimedOut;
    }
    return channel.endResult() == IoResult::Cancelled ? kAMDCancelled : kAMDNotConnected;
}

} // namespace

int32_t TlsSecurity::begin(Channel& channel, const PairRecord& record, Protocol protocol) {
    if (!nss::start()) {
        return kAMDSessionNotSupported;
    }
    if (protocol == Protocol::Ssl3 && !nss::speaksSsl3()) {
        return kAMDNoSsl3;
    }
    nss::ClientSetup setup = setupFor(protocol);
    setup.certificate = nss::parseCertificate(record.dataText("HostCertificate"));
    setup.key = nss::parsePrivateKey(record.dataText("HostPrivateKey"));
    nss::Certificate paired = nss::parseCertificate(record.dataText("DeviceCertificate"));
    if (!setup.certificate || !setup.key || !paired) {
        return kAMDBadPairRecord;
    }
    if (const int32_t status = waitForTurn(channel, *paired, setup.turn)) {
        return status;
    }
    setup.peerKeyBits = nss::keyBits(paired.get());
    setup.check = [paired = std::shared_ptr<const CERTCertificate>(std::move(paired))](
                      const CERTCertificate& shown) { return check(shown, *paired); };
    const bool hostIsValid = nss::isValidNow(setup.certificate.get());

    auto encryption = std::make_unique<StreamEncryption>(channel);
    const StreamEncryption& stream = *encryption;
    if (!encryption->open(std::move(setup))) {
        return kAMDSessionNotSupported;
    }
    const int32_t status =
        statusOf(channel.beginEncryption(std::move(encryption)), stream, hostIsValid);
    if (status != 0) {
        channel.endEncryption(); // another phone may wait for this one's place
    }
    return status;
}

void TlsSecurity::end(Channel& channel) {
    channel.endEncryption();
}

std::unique_ptr<SessionSecurity> newSessionSecurity() {
    return std::make_unique<TlsSecurity>();
}

int32_t sessionSupport() {
    if (!nss::start()) {
        return kAMDSessionNotSupported;
    }
    return nss::speaksSsl3() ? 0 : kAMDNoSsl3;
}

} // namespace krl::provider
