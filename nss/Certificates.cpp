#include "nss/Certificates.h"

#include "nss/Pem.h"

#include <certt.h>
#include <cryptohi.h>
#include <pk11pub.h>
#include <prtime.h>
#include <secasn1.h>
#include <secder.h>
#include <secerr.h>
#include <secoid.h>

#include <cstdint>
#include <optional>

// NSS exports CERT_DecodeDERCertificate of its headers under this name only.
extern "C" CERTCertificate* __CERT_DecodeDERCertificate(SECItem* der, PRBool copyDER,
                                                        char* nickname);

namespace krl::nss {

namespace {

constexpr const char* kLabel = "CERTIFICATE";

PRTime prTime(std::chrono::system_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
}

Name nameOf(const std::string& commonName) {
    return Name(CERT_AsciiToName(("CN=" + commonName).c_str()));
}

// Two certificates of one issuer and serial number are one and the same to NSS.
std::optional<unsigned long> newSerial() {
    uint32_t serial = 0;
    if (PK11_GenerateRandom(reinterpret_cast<unsigned char*>(&serial), sizeof serial) !=
        SECSuccess) {
        return std::nullopt;
    }
    constexpr uint32_t kPositive = 0x7FFFFFFF;
    return (serial & kPositive) | 1U;
}

bool addConstraint(CERTCertificate& certificate, bool mayIssue) {
    CERTBasicConstraints constraints{};
    constraints.isCA = mayIssue ? PR_TRUE : PR_FALSE;
    constraints.pathLenConstraint = CERT_UNLIMITED_PATH_CONSTRAINT;
    SECItem encoded{};
    void* extensions = CERT_StartCertExtensions(&certificate);
    const bool added =
        extensions != nullptr &&
        CERT_EncodeBasicConstraintValue(certificate.arena, &constraints, &encoded) == SECSuccess &&
        CERT_AddExtension(extensions, SEC_OID_X509_BASIC_CONSTRAINTS, &encoded,
                          /*critical=*/PR_TRUE,
                          /*copyData=*/PR_TRUE) == SECSuccess;
    return extensions != nullptr && CERT_FinishExtensions(extensions) == SECSuccess && added;
}

Certificate unsignedCertificate(const CertificatePlan& plan) {
    const Name subject = nameOf(plan.subject);
    const Name issuer = nameOf(plan.issuer);
    const SubjectKeyInfo key(SECKEY_CreateSubjectPublicKeyInfo(plan.subjectKey));
    const Validity validity(CERT_CreateValidity(prTime(plan.notBefore), prTime(plan.notAfter)));
    const std::optional<unsigned long> serial = newSerial();
    if (!subject || !issuer || !key || !validity || !serial) {
        return nullptr;
    }
    const Request request(CERT_CreateCertificateRequest(subject.get(), key.get(), nullptr));
    if (!request) {
        return nullptr;
    }
    return Certificate(
        CERT_CreateCertificate(*serial, issuer.get(), validity.get(), request.get()));
}

} // namespace

std::string newCertificatePem(const CertificatePlan& plan) {
    constexpr unsigned kVersion3 = 2; // counted from 0
    const SECOidTag algorithm = plan.withSha1 ? SEC_OID_PKCS1_SHA1_WITH_RSA_ENCRYPTION
                                              : SEC_OID_PKCS1_SHA256_WITH_RSA_ENCRYPTION;
    const Certificate certificate = unsignedCertificate(plan);
    if (!certificate || !addConstraint(*certificate, plan.mayIssue)) {
        return "";
    }
    PLArenaPool* arena = certificate->arena;
    SECItem contents{};
    SECItem whole{};
    const bool isSigned =
        DER_SetUInteger(arena, &certificate->version, kVersion3) == SECSuccess &&
        SECOID_SetAlgorithmID(arena, &certificate->signature, algorithm, nullptr) == SECSuccess &&
        SEC_ASN1EncodeItem(arena, &contents, certificate.get(),
                           SEC_ASN1_GET(CERT_CertificateTemplate)) != nullptr &&
        SEC_DerSignData(arena, &whole, contents.data, static_cast<int>(contents.len),
                        plan.issuerKey, algorithm) == SECSuccess;
    return isSigned ? toPem(kLabel, {reinterpret_cast<const char*>(whole.data), whole.len}) : "";
}

Certificate parseCertificate(std::string_view pem) {
    std::optional<Bytes> bytes = fromPem(kLabel, pem);
    if (!bytes) {
        return nullptr;
    }
    SECItem item{siBuffer, reinterpret_cast<unsigned char*>(bytes->data()),
                 static_cast<unsigned>(bytes->size())};
    // Decoded by itself, not entered into NSS's table of certificates: there one that has the
    // issuer and the serial number of another would be taken for it, and pairing tools give all of
    // a record's certificates the same.
    return Certificate(__CERT_DecodeDERCertificate(&item, /*copyDER=*/PR_TRUE, nullptr));
}

bool haveSameKey(const CERTCertificate* one, const CERTCertificate* other) {
    return SECITEM_CompareItem(&one->derPublicKey, &other->derPublicKey) == SECEqual;
}

int keyBits(const CERTCertificate* certificate) {
    const PublicKey key(SECKEY_ExtractPublicKey(&certificate->subjectPublicKeyInfo));
    return key ? static_cast<int>(SECKEY_PublicKeyStrengthInBits(key.get())) : 0;
}

bool isValidNow(const CERTCertificate* certificate) {
    return CERT_CheckCertValidTimes(certificate, PR_Now(), PR_FALSE) == secCertTimeValid;
}

} // namespace krl::nss
