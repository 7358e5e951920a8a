#include "tests/support/OtherTls.h"

#include "nss/Certificates.h"
#include "nss/Keys.h"
#include "nss/Pem.h"
#include "nss/Runtime.h"
#include "tests/support/Process.h"
#include "virtualphone/wire/UniqueFd.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <optional>
#include <stdexcept>
#include <utility>

namespace virtualphone::testing {

namespace {

namespace nss = krl::nss;

constexpr int kKeyBits = 1024;

std::string bigEndian(size_t number) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) {
        bytes.push_back(static_cast<char>(number >> shift));
    }
    return bytes;
}

/// One stream of the other implementation.
class Engine {
public:
    struct Answer {
        char state = 'x'; ///< h: shaking hands; o: open; x: failed
        int handshakes = 0;
        std::string cipher; ///< for the client
        std::string plain;  ///< from the client
        std::string text;   ///< protocol and suite, or what failed
    };

    explicit Engine(uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int atOnce = 1;
        ::setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &atOnce, sizeof atOnce);
        if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
            0) {
            throw std::runtime_error("the other implementation does not answer");
        }
    }

    void tell(char kind, const std::string& bytes) const {
        const std::string message = kind + bigEndian(bytes.size()) + bytes;
        if (::send(socket_.get(), message.data(), message.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(message.size())) {
            throw std::runtime_error("the other implementation is gone");
        }
    }

    Answer ask(char kind, const std::string& bytes) const {
        tell(kind, bytes);
        Answer answer;
        answer.state = read(1).front();
        answer.handshakes = static_cast<int>(readNumber());
        answer.cipher = read(readNumber());
        answer.plain = read(readNumber());
        answer.text = read(readNumber());
        return answer;
    }

private:
    std::string read(size_t size) const {
        std::string bytes(size, '\0');
        if (size > 0 &&
            ::recv(socket_.get(), bytes.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size)) {
            throw std::runtime_error("the other implementation is gone");
        }
        return bytes;
    }

    size_t readNumber() const {
        size_t number = 0;
        for (const char byte : read(4)) {
            number = number << 8 | static_cast<unsigned char>(byte);
        }
        return number;
    }

    UniqueFd socket_;
};

class OtherStream final : public EncryptedStream {
public:
    OtherStream(std::unique_ptr<RawStream> bytes, Engine engine, const OtherTlsOptions& options,
                std::atomic<int>& handshakes)
        : bytes_(std::move(bytes)), engine_(std::move(engine)), options_(options),
          handshakes_(handshakes) {}

    ~OtherStream() override {
        if (isOpen_) {
            exchange('e', "");
        }
    }

    OtherStream(const OtherStream&) = delete;
    OtherStream& operator=(const OtherStream&) = delete;

    bool handshake() override {
        bool isFirst = true;
        while (!isOpen_) {
            const std::string came = receiveSome();
            if (came.empty() || (std::exchange(isFirst, false) && options_.closesOnOtherVersions &&
                                 !isOfSsl3(came))) {
                outcome_ = "closed";
                return false;
            }
            if (!exchange('c', came)) {
                return false;
            }
        }
        return true;
    }

    std::string outcome() const override { return outcome_; }

    size_t receive(std::span<char> target) override {
        while (plain_.empty()) {
            const std::string came = receiveSome();
            if (came.empty() || !exchange('c', came)) {
                return 0;
            }
        }
        const size_t count = plain_.copy(target.data(), target.size());
        plain_.erase(0, count);
        return count;
    }

    bool send(std::span<const char> bytes) override {
        if (options_.asksForANewHandshake && !std::exchange(hasAsked_, true) &&
            !exchange('r', "")) {
            return false;
        }
        return exchange('p', {bytes.begin(), bytes.end()});
    }

private:
    // In the record's header and in the hello.
    static bool isOfSsl3(const std::string& hello) {
        constexpr size_t kHelloVersion = 9;
        return hello.size() > kHelloVersion + 1 && hello.compare(1, 2, "\x03\x00", 2) == 0 &&
               hello.compare(kHelloVersion, 2, "\x03\x00", 2) == 0;
    }

    std::string receiveSome() {
        std::string bytes(16'384, '\0');
        bytes.resize(bytes_->receive(bytes));
        return bytes;
    }

    bool exchange(char kind, const std::string& bytes) {
        Engine::Answer answer = engine_.ask(kind, bytes);
        plain_ += answer.plain;
        outcome_ = std::move(answer.text);
        isOpen_ = answer.state == 'o';
        handshakes_ += answer.handshakes - std::exchange(counted_, answer.handshakes);
        const bool isSent = answer.cipher.empty() || bytes_->send(answer.cipher);
        return isSent && answer.state != 'x';
    }

    std::unique_ptr<RawStream> bytes_;
    Engine engine_;
    const OtherTlsOptions& options_;
    std::atomic<int>& handshakes_;
    int counted_ = 0;
    bool isOpen_ = false;
    bool hasAsked_ = false;
    std::string plain_;
    std::string outcome_;
};

std::string derOfCertificate(const std::string& pem) {
    return nss::fromPem("CERTIFICATE", pem).value_or("");
}

} // namespace

const OtherTls* OtherTls::instance() {
    static const std::optional<OtherTls> started = []() -> std::optional<OtherTls> {
        if (!isInstalled("java")) {
            return std::nullopt;
        }
        static Process program(
            {"java", "-XX:TieredStopAtLevel=1", "-XX:+UseSerialGC", "-Xshare:auto", KRL_OTHER_TLS});
        const std::string line = program.readLine().value_or("");
        const size_t space = line.find(' ');
        if (space == std::string::npos) {
            throw std::runtime_error("the other implementation does not start: " + line);
        }
        return OtherTls(static_cast<uint16_t>(std::stoi(line)), line.substr(space + 1));
    }();
    return started ? &*started : nullptr;
}

struct OtherTlsKeys::Identities {
    struct Identity {
        Identity(const char* name, const char* issuer, const Identity* signer = nullptr)
            : keys(nss::newKeyPair(kKeyBits)),
              certificate(certificateFor(name, keys, issuer, signer ? signer->keys : keys)) {}

        nss::KeyPair keys;
        std::string certificate;
    };

    static std::string certificateFor(const char* name, const nss::KeyPair& keys,
                                      const char* issuer, const nss::KeyPair& issuerKeys) {
        const auto now = std::chrono::system_clock::now();
        return nss::newCertificatePem({.subject = name,
                                       .issuer = issuer,
                                       .subjectKey = keys.publicKey.get(),
                                       .issuerKey = issuerKeys.privateKey.get(),
                                       .mayIssue = &keys == &issuerKeys,
                                       .notBefore = now - std::chrono::hours(24),
                                       .notAfter = now + std::chrono::hours(24)});
    }

    Identity root{"Root", "Root"};
    Identity host{"Host", "Root", &root};
    Identity phone{"Phone", "Root", &root};
};

OtherTlsKeys::OtherTlsKeys(const OtherTls& other, OtherTlsOptions options)
    : other_(other), options_(std::move(options)),
      identities_(nss::start() ? std::make_unique<Identities>() : nullptr) {
    if (!identities_) {
        throw std::runtime_error("NSS cannot make keys");
    }
}

OtherTlsKeys::~OtherTlsKeys() = default;

std::string OtherTlsKeys::publicKey() const {
    return nss::publicKeyPem(identities_->phone.keys);
}

std::map<std::string, std::string> OtherTlsKeys::pairRecordParts() const {
    return {{"HostPrivateKey", nss::privateKeyPem(identities_->host.keys)},
            {"RootPrivateKey", nss::privateKeyPem(identities_->root.keys)},
            {"HostCertificate", identities_->host.certificate},
            {"RootCertificate", identities_->root.certificate},
            {"DeviceCertificate", identities_->phone.certificate}};
}

bool OtherTlsKeys::canKnow(const HostCertificates& certificates) const {
    return !derOfCertificate(certificates.host).empty();
}

std::unique_ptr<EncryptedStream> OtherTlsKeys::accept(std::unique_ptr<RawStream> bytes,
                                                      std::vector<HostCertificates> hosts) const {
    Engine engine(other_.port());
    const nss::Item key(
        PK11_ExportDERPrivateKeyInfo(identities_->phone.keys.privateKey.get(), nullptr));
    engine.tell('K', {reinterpret_cast<const char*>(key->data), key->len});
    engine.tell('C', derOfCertificate(identities_->phone.certificate));
    for (const HostCertificates& host : hosts) {
        engine.tell('H', derOfCertificate(host.host));
    }
    if (engine.ask('S', options_.protocol).state == 'x') {
        return nullptr;
    }
    return std::make_unique<OtherStream>(std::move(bytes), std::move(engine), options_,
                                         handshakes_);
}

} // namespace virtualphone::testing
