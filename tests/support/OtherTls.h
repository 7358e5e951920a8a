// Encrypted sessions of a virtual phone by an implementation that shares nothing with NSS: OpenJDK's.
#pragma once

#include "virtualphone/phone/SessionKeys.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace virtualphone::testing {

/// The program that speaks it, one for the whole test program; started when it is first needed.
class OtherTls {
public:
    /// Null when there is no Java here.
    static const OtherTls* instance();

    /// Where it listens.
    uint16_t port() const { return port_; }

    /// What it is, as in "OpenJDK 17.0.15 SunJSSE version 17".
    const std::string& name() const { return name_; }

private:
    OtherTls(uint16_t port, std::string name) : port_(port), name_(std::move(name)) {}

    uint16_t port_;
    std::string name_;
};

struct OtherTlsOptions {
    std::string protocol = "SSLv3"; ///< as Java names it; nothing else is spoken

    /// A hello of another version than SSL 3.0 ends the connection, without a word.
    bool closesOnOtherVersions = false;

    /// A new handshake is asked for before the first answer.
    bool asksForANewHandshake = false;
};

/// For PhoneOptions::keys. Keys are of 1024 bits, as the first phones have them.
class OtherTlsKeys final : public SessionKeys {
public:
    OtherTlsKeys(const OtherTls& other, OtherTlsOptions options);
    ~OtherTlsKeys() override;

    std::string publicKey() const override;
    std::map<std::string, std::string> pairRecordParts() const override;
    bool canKnow(const HostCertificates& certificates) const override;
    std::unique_ptr<EncryptedStream> accept(std::unique_ptr<RawStream> bytes,
                                            std::vector<HostCertificates> hosts) const override;

    /// Handshakes that were carried out to their end.
    int handshakes() const { return handshakes_; }

private:
    struct Identities;

    const OtherTls& other_;
    const OtherTlsOptions options_;
    const std::unique_ptr<const Identities> identities_;
    mutable std::atomic<int> handshakes_ = 0;
};

} // namespace virtualphone::testing
