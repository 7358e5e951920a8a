// Two sides that know each other, made once: keys cost the most.
#pragma once

#include "nss/Certificates.h"
#include "nss/Keys.h"
#include "nss/Runtime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace krl::nss::testing {

struct Identity {
    KeyPair keys;
    std::string keyPem;
    std::string certificatePem;
};

inline constexpr int kEarlyBits = 1024;

inline CertificatePlan planFor(const KeyPair& keys, const std::string& name) {
    const auto now = std::chrono::system_clock::now();
    return {.subject = name,
            .issuer = name,
            .subjectKey = keys.publicKey.get(),
            .issuerKey = keys.privateKey.get(),
            .notBefore = now - std::chrono::hours(24),
            .notAfter = now + std::chrono::hours(24)};
}

inline Identity newIdentity(const std::string& name) {
    EXPECT_TRUE(start());
    Identity identity{newKeyPair(kEarlyBits), "", ""};
    identity.keyPem = privateKeyPem(identity.keys);
    identity.certificatePem = newCertificatePem(planFor(identity.keys, name));
    return identity;
}

inline const Identity& phoneIdentity() {
    static const Identity identity = newIdentity("Phone");
    return identity;
}

inline const Identity& hostIdentity() {
    static const Identity identity = newIdentity("Host");
    return identity;
}

} // namespace krl::nss::testing
