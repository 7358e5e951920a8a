/// What a phone needs for encrypted sessions: made once, when the phone is.
#pragma once

#include "virtualphone/phone/PhoneOptions.h"
#include "virtualphone/wire/RawStream.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace virtualphone {

/// The certificates that a host brought when it was paired, PEM text each. Hosts show either of
/// their own.
struct HostCertificates {
    std::string host{};
    std::string root{};
    std::string device{}; ///< about the phone's key
};

class SessionKeys {
public:
    virtual ~SessionKeys() = default;

    /// The phone's public key, as lockdown says it.
    virtual std::string publicKey() const = 0;

    /// Keys and certificates for a pair record of this computer with the phone, by their names.
    virtual std::map<std::string, std::string> pairRecordParts() const = 0;

    /// Whether the certificates are such that a host could be known by them.
    virtual bool canKnow(const HostCertificates& certificates) const = 0;

    /// The phone's side of a stream to one of these hosts; null when it cannot be had.
    virtual std::unique_ptr<EncryptedStream> accept(std::unique_ptr<RawStream> bytes,
                                                    std::vector<HostCertificates> hosts) const = 0;
};

/// Null for sessions in clear. Throws std::invalid_argument when this build cannot encrypt.
std::unique_ptr<const SessionKeys> newSessionKeys(const PhoneOptions& options);

} // namespace virtualphone
