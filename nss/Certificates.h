// Certificates of pair records: made, read and compared. start() must have been true.
#pragma once

#include "nss/Owners.h"

#include <chrono>
#include <string>
#include <string_view>

namespace krl::nss {

/// What a certificate says and who says it.
struct CertificatePlan {
    std::string subject;         ///< a common name
    std::string issuer;          ///< the signer's common name
    SECKEYPublicKey* subjectKey; ///< whose key it is about
    SECKEYPrivateKey* issuerKey; ///< signs it
    bool mayIssue = false;       ///< a root
    bool withSha1 = true;        ///< signed with SHA-1, as early phones want it; or SHA-256
    std::chrono::system_clock::time_point notBefore;
    std::chrono::system_clock::time_point notAfter;
};

/// PEM text "CERTIFICATE"; empty on failure. Its serial number is drawn anew each time.
std::string newCertificatePem(const CertificatePlan& plan);

/// The first certificate of a PEM text; null when there is none that can be read.
Certificate parseCertificate(std::string_view pem);

/// Whether both are about the same key.
bool haveSameKey(const CERTCertificate* one, const CERTCertificate* other);

/// How many bits the key has that a certificate is about; 0 when it cannot be read.
int keyBits(const CERTCertificate* certificate);

/// Whether a certificate is valid now: neither too early nor too late.
bool isValidNow(const CERTCertificate* certificate);

} // namespace krl::nss
