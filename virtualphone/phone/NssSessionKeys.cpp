#include "virtualphone/phone/SessionKeys.h"

#include "nss/Certificates.h"
#include "nss/Keys.h"
#include "nss/Runtime.h"
#include "nss/TlsStream.h"

#include <secerr.h>
#include <sslproto.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

namespace virtualphone {

namespace {

namespace nss = krl::nss;

using std::chrono::hours;
using std::chrono::system_clock;

constexpr hours kLifetime{24 * 365 * 10};

// Of the strength that was usual when phones spoke that protocol.
struct Strength {
    int keyBits;
    bool withSha1;
};

Strength strengthOf(SessionKind kind) {
    return kind == SessionKind::Ssl3 ? Strength{1024, true} : Strength{2048, false};
}

nss::KeyPair newKeys(SessionKind kind) {
    nss::KeyPair keys = nss::newKeyPair(strengthOf(kind).keyBits);
    if (!keys.privateKey) {
        throw std::runtime_error("NSS cannot make a key");
    }
    return keys;
}

std::string certificate(SessionKind kind, const char* subject, const nss::KeyPair& keys,
                        const char* issuer, const nss::KeyPair& issuerKeys,
                        system_clock::duration validFor = kLifetime) {
    return nss::newCertificatePem({.subject = subject,
                                   .issuer = issuer,
                                   .subjectKey = keys.publicKey.get(),
                                   .issuerKey = issuerKeys.privateKey.get(),
                                   .mayIssue = &keys == &issuerKeys,
                                   .withSha1 = strengthOf(kind).withSha1,
                                   .notBefore = system_clock::now() - hours(48),
                                   .notAfter = system_clock::now() + validFor});
}

// The identity of the computer that the phones are plugged into: one for all of them.
struct Computer {
    explicit Computer(SessionKind sessionKind)
        : kind(sessionKind), root(newKeys(kind)), host(newKeys(kind)),
          rootCertificate(certificate(kind, kRootName, root, kRootName, root)),
          hostCertificate(certificate(kind, "Virtual Host", host, kRootName, root)) {}

    static const Computer& of(SessionKind kind) {
        if (kind == SessionKind::Ssl3) {
            static const Computer early(SessionKind::Ssl3);
            return early;
        }
        static const Computer modern(SessionKind::Modern);
        return modern;
    }

    static constexpr const char* kRootName = "Virtual Root";

    const SessionKind kind;
    const nss::KeyPair root;
    const nss::KeyPair host;
    const std::string rootCertificate;
    const std::string hostCertificate;
};

// Hosts whose certificates NSS would take for each other are served one after the other.
bool waitForTurn(const std::vector<HostCertificates>& hosts, std::optional<nss::PeerTurn>& turn) {
    constexpr std::chrono::seconds kMostPatience(10);
    std::vector<nss::Certificate> parsed;
    std::vector<const CERTCertificate*> expected;
    for (const HostCertificates& host : hosts) {
        for (const std::string& pem : {host.host, host.root}) {
            expected.push_back(parsed.emplace_back(nss::parseCertificate(pem)).get());
        }
    }
    const auto end = std::chrono::steady_clock::now() + kMostPatience;
    return nss::PeerTurn::take(nss::PeerTurn::Side::Server, expected, turn,
                               [end] { return std::chrono::steady_clock::now() < end; });
}

int shortestKey(const std::vector<HostCertificates>& hosts) {
    int bits = std::numeric_limits<int>::max();
    for (const HostCertificates& host : hosts) {
        for (const std::string& pem : {host.host, host.root}) {
            if (const nss::Certificate certificate = nss::parseCertificate(pem)) {
                bits = std::min(bits, nss::keyBits(certificate.get()));
            }
        }
    }
    return bits;
}

PRErrorCode check(const CERTCertificate& shown, const std::vector<HostCertificates>& hosts) {
    const auto isKnownBy = [&](const std::string& pem) {
        const nss::Certificate known = nss::parseCertificate(pem);
        return known && nss::haveSameKey(&shown, known.get());
    };
    const bool isKnown = std::any_of(hosts.begin(), hosts.end(), [&](const auto& host) {
        return isKnownBy(host.host) || isKnownBy(host.root);
    });
    if (!isKnown) {
        return SEC_ERROR_UNTRUSTED_CERT;
    }
    return nss::isValidNow(&shown) ? 0 : SEC_ERROR_EXPIRED_CERTIFICATE;
}

class NssStream final : public EncryptedStream, private nss::Transport {
public:
    NssStream(std::unique_ptr<RawStream> bytes, nss::ServerSetup setup,
              std::vector<HostCertificates> hosts)
        : bytes_(std::move(bytes)), setup_(std::move(setup)), hosts_(std::move(hosts)) {}

    // The client speaks first. Before that nothing is held that another stream may wait for.
    bool handshake() override {
        char first = 0;
        if (bytes_->receive({&first, 1}) == 1) {
            first_ = first;
        }
        if (waitForTurn(hosts_, setup_.turn)) {
            stream_ = nss::TlsStream::server(*this, std::move(setup_));
        }
        isOpen_ = stream_ && stream_->handshake() == nss::TlsStep::Done;
        return isOpen_;
    }

    std::string outcome() const override {
        if (isOpen_) {
            return stream_->description();
        }
        if (!stream_) {
            return "NSS refuses the setup";
        }
        const char* name = PR_ErrorToName(stream_->error());
        return name == nullptr ? "unknown error" : name;
    }

    size_t receive(std::span<char> target) override {
        size_t received = 0;
        const nss::TlsStep step = stream_->receive(std::as_writable_bytes(target), received);
        return step == nss::TlsStep::Done ? received : 0;
    }

    bool send(std::span<const char> bytes) override {
        while (!bytes.empty()) {
            size_t sent = 0;
            if (stream_->send(std::as_bytes(bytes), sent) != nss::TlsStep::Done) {
                return false;
            }
            bytes = bytes.subspan(sent);
        }
        return stream_->flush() == nss::TlsStep::Done;
    }

private:
    ssize_t receive(std::span<std::byte> target) override {
        const std::span chars(reinterpret_cast<char*>(target.data()), target.size());
        if (first_) {
            chars.front() = *std::exchange(first_, std::nullopt);
            return 1;
        }
        return static_cast<ssize_t>(bytes_->receive(chars));
    }

    ssize_t send(std::span<const std::byte> bytes) override {
        const std::span chars(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        if (bytes_->send(chars)) {
            return static_cast<ssize_t>(bytes.size());
        }
        errno = EPIPE;
        return -1;
    }

    std::unique_ptr<RawStream> bytes_;
    nss::ServerSetup setup_;
    const std::vector<HostCertificates> hosts_;
    std::optional<char> first_; // received, and not yet given to the stream
    bool isOpen_ = false;
    std::unique_ptr<nss::TlsStream> stream_; // last: its end is said over the bytes
};

class NssSessionKeys final : public SessionKeys {
public:
    explicit NssSessionKeys(const PhoneOptions& options)
        : kind_(options.session), keys_(newKeys(kind_)), keyPem_(nss::privateKeyPem(keys_)),
          certificatePem_(certificate(kind_, "Virtual Phone", keys_, "Virtual Phone", keys_,
                                      options.expiredCertificate ? -hours(24) : kLifetime)),
          isExpired_(options.expiredCertificate) {
        if (keyPem_.empty() || certificatePem_.empty()) {
            throw std::runtime_error("NSS cannot make a certificate");
        }
    }

    std::string publicKey() const override { return nss::publicKeyPem(keys_); }

    std::map<std::string, std::string> pairRecordParts() const override {
        const Computer& computer = Computer::of(kind_);
        return {{"HostPrivateKey", nss::privateKeyPem(computer.host)},
                {"RootPrivateKey", nss::privateKeyPem(computer.root)},
                {"HostCertificate", computer.hostCertificate},
                {"RootCertificate", computer.rootCertificate},
                {"DeviceCertificate",
                 certificate(kind_, "Virtual Phone", keys_, Computer::kRootName, computer.root)}};
    }

    bool canKnow(const HostCertificates& certificates) const override {
        return nss::parseCertificate(certificates.host) && nss::parseCertificate(certificates.root);
    }

    std::unique_ptr<EncryptedStream> accept(std::unique_ptr<RawStream> bytes,
                                            std::vector<HostCertificates> hosts) const override {
        const bool isEarly = kind_ == SessionKind::Ssl3;
        nss::ServerSetup setup;
        setup.leastVersion = isEarly ? SSL_LIBRARY_VERSION_3_0 : SSL_LIBRARY_VERSION_TLS_1_0;
        setup.highestVersion = isEarly ? SSL_LIBRARY_VERSION_3_0 : SSL_LIBRARY_VERSION_TLS_1_2;
        setup.withModernSuites = !isEarly;
        setup.certificate = shownTo(hosts);
        setup.key = nss::parsePrivateKey(keyPem_);
        setup.peerKeyBits = shortestKey(hosts);
        setup.check = [hosts](const CERTCertificate& shown) { return check(shown, hosts); };
        return std::make_unique<NssStream>(std::move(bytes), std::move(setup), std::move(hosts));
    }

private:
    // The one that a host has made at the pairing, as real phones do.
    nss::Certificate shownTo(const std::vector<HostCertificates>& hosts) const {
        nss::Certificate own = nss::parseCertificate(certificatePem_);
        for (const HostCertificates& host : hosts) {
            nss::Certificate made = nss::parseCertificate(host.device);
            if (made && !isExpired_ && nss::haveSameKey(made.get(), own.get())) {
                return made;
            }
        }
        return own;
    }

    const SessionKind kind_;
    const nss::KeyPair keys_;
    const std::string keyPem_;
    const std::string certificatePem_;
    const bool isExpired_;
};

} // namespace

std::unique_ptr<const SessionKeys> newSessionKeys(const PhoneOptions& options) {
    if (options.session == SessionKind::Clear) {
        return nullptr;
    }
    if (!nss::start()) {
        throw std::invalid_argument("NSS cannot be used here: sessions are in clear only");
    }
    if (options.session == SessionKind::Ssl3 && !nss::speaksSsl3()) {
        throw std::invalid_argument("the NSS of this computer does not speak SSL 3.0 any more");
    }
    return std::make_unique<NssSessionKeys>(options);
}

} // namespace virtualphone
