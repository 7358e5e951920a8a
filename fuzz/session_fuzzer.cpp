// Any bytes as what the other side of an encrypted session says, and as the keys and certificates
// of a pair record. The first byte says which. A stream takes them or refuses them; only a handshake
// that ended well carries anything.

#include "nss/Certificates.h"
#include "nss/Keys.h"
#include "nss/Runtime.h"
#include "nss/TlsStream.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

namespace {

using namespace krl::nss;

struct Identity {
    explicit Identity(const char* name) {
        const auto now = std::chrono::system_clock::now();
        const KeyPair keys = newKeyPair(1024);
        key = privateKeyPem(keys);
        certificate = newCertificatePem({.subject = name,
                                         .issuer = name,
                                         .subjectKey = keys.publicKey.get(),
                                         .issuerKey = keys.privateKey.get(),
                                         .notBefore = now - std::chrono::hours(24),
                                         .notAfter = now + std::chrono::hours(24)});
    }

    std::string key;
    std::string certificate;
};

const Identity& identity() {
    static const Identity one = [] {
        if (!start()) {
            std::abort();
        }
        return Identity("Somebody");
    }();
    return one;
}

// Says what it was given, piece by piece, and then that it has ended.
class Script final : public Transport {
public:
    explicit Script(std::span<const uint8_t> bytes) : rest_(std::as_bytes(bytes)) {}

    ssize_t receive(std::span<std::byte> target) override {
        const size_t count = std::min(target.size(), rest_.size());
        std::copy_n(rest_.begin(), count, target.begin());
        rest_ = rest_.subspan(count);
        return static_cast<ssize_t>(count);
    }

    ssize_t send(std::span<const std::byte> bytes) override {
        return static_cast<ssize_t>(bytes.size());
    }

private:
    std::span<const std::byte> rest_;
};

StreamSetup setupFor(uint16_t least, uint16_t highest) {
    StreamSetup setup;
    setup.leastVersion = least;
    setup.highestVersion = highest;
    setup.withModernSuites = highest > 0x0300;
    setup.certificate = parseCertificate(identity().certificate);
    setup.key = parsePrivateKey(identity().key);
    setup.peerKeyBits = 512;
    setup.check = [](const CERTCertificate& shown) {
        isValidNow(&shown);
        keyBits(&shown);
        return 0;
    };
    return setup;
}

template <typename Stream>
void converse(const Stream& stream) {
    if (!stream) {
        std::abort();
    }
    if (stream->handshake() == TlsStep::Done) {
        std::abort(); // nobody signs a handshake by chance
    }
    static_cast<void>(stream->description());
}

void parseParts(std::string_view text) {
    const Certificate certificate = parseCertificate(text);
    if (certificate) {
        haveSameKey(certificate.get(), certificate.get());
        isValidNow(certificate.get());
        keyBits(certificate.get());
    }
    parsePrivateKey(text);
    parsePublicKey(text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    identity();
    const std::span<const uint8_t> rest(data + 1, size - 1);
    Script script(rest);
    switch (data[0] % 4) {
    case 0:
        parseParts({reinterpret_cast<const char*>(rest.data()), rest.size()});
        break;
    case 1:
        converse(TlsStream::client(script, {setupFor(0x0300, 0x0300)}));
        break;
    case 2:
        converse(TlsStream::client(script, {setupFor(0x0301, 0x0303)}));
        break;
    default:
        converse(TlsStream::server(script, {setupFor(0x0300, 0x0303)}));
        break;
    }
    return 0;
}
