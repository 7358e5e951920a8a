#include "nss/Keys.h"

#include "nss/Pem.h"

#include <optional>

namespace krl::nss {

namespace {

constexpr const char* kRsaPrivate = "RSA PRIVATE KEY"; // PKCS #1
constexpr const char* kAnyPrivate = "PRIVATE KEY";     // PKCS #8
constexpr const char* kRsaPublic = "RSA PUBLIC KEY";   // PKCS #1
constexpr const char* kAnyPublic = "PUBLIC KEY";

SECItem itemOver(Bytes& bytes) {
    return {siBuffer, reinterpret_cast<unsigned char*>(bytes.data()),
            static_cast<unsigned>(bytes.size())};
}

Bytes bytesOf(const SECItem& item) {
    return Bytes(reinterpret_cast<const char*>(item.data), item.len);
}

// A DER value: tag, length, contents.
Bytes der(char tag, const Bytes& contents) {
    Bytes length;
    for (size_t rest = contents.size(); rest > 0; rest >>= 8) {
        length.insert(length.begin(), static_cast<char>(rest & 0xFF));
    }
    constexpr size_t kShortForm = 0x80;
    if (contents.size() >= kShortForm) {
        length.insert(length.begin(), static_cast<char>(kShortForm | length.size()));
    } else if (length.empty()) {
        length = Bytes(1, '\0');
    }
    return tag + length + contents;
}

// The frame that says of what kind a key is, round one that does not.
Bytes withAlgorithm(const Bytes& rsaKey) {
    constexpr char kSequence = 0x30;
    constexpr char kOctets = 0x04;
    const Bytes version("\x02\x01\x00", 3);
    const Bytes rsaEncryption("\x30\x0D\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01\x05\x00", 15);
    return der(kSequence, version + rsaEncryption + der(kOctets, rsaKey));
}

} // namespace

KeyPair newKeyPair(int bits) {
    const Slot slot(PK11_GetInternalSlot());
    PK11RSAGenParams parameters{bits, 65537};
    SECKEYPublicKey* publicKey = nullptr;
    KeyPair keys;
    keys.privateKey.reset(PK11_GenerateKeyPair(slot.get(), CKM_RSA_PKCS_KEY_PAIR_GEN, &parameters,
                                               &publicKey, /*isPerm=*/PR_FALSE,
                                               /*isSensitive=*/PR_FALSE, nullptr));
    keys.publicKey.reset(publicKey);
    return keys;
}

std::string privateKeyPem(const KeyPair& keys) {
    const PrivateKeyInfo info(PK11_ExportPrivKeyInfo(keys.privateKey.get(), nullptr));
    return info ? toPem(kRsaPrivate, bytesOf(info->privateKey)) : "";
}

std::string publicKeyPem(const KeyPair& keys) {
    const SubjectKeyInfo info(SECKEY_CreateSubjectPublicKeyInfo(keys.publicKey.get()));
    if (!info) {
        return "";
    }
    // A bit string counts bits.
    const unsigned bytes = (info->subjectPublicKey.len + 7) / 8;
    return toPem(kRsaPublic, bytesOf({siBuffer, info->subjectPublicKey.data, bytes}));
}

PrivateKey parsePrivateKey(std::string_view pem) {
    std::optional<Bytes> info = fromPem(kAnyPrivate, pem);
    if (!info) {
        if (const auto rsaKey = fromPem(kRsaPrivate, pem)) {
            info = withAlgorithm(*rsaKey);
        }
    }
    if (!info) {
        return nullptr;
    }
    const Slot slot(PK11_GetInternalSlot());
    SECItem item = itemOver(*info);
    SECKEYPrivateKey* key = nullptr;
    PK11_ImportDERPrivateKeyInfoAndReturnKey(slot.get(), &item, nullptr, nullptr,
                                             /*isPerm=*/PR_FALSE, /*isPrivate=*/PR_FALSE, KU_ALL,
                                             &key, nullptr);
    return PrivateKey(key);
}

PublicKey parsePublicKey(std::string_view pem) {
    if (std::optional<Bytes> rsaKey = fromPem(kRsaPublic, pem)) {
        const SECItem item = itemOver(*rsaKey);
        return PublicKey(SECKEY_ImportDERPublicKey(&item, CKK_RSA));
    }
    if (std::optional<Bytes> anyKey = fromPem(kAnyPublic, pem)) {
        const SECItem item = itemOver(*anyKey);
        const SubjectKeyInfo info(SECKEY_DecodeDERSubjectPublicKeyInfo(&item));
        return PublicKey(info ? SECKEY_ExtractPublicKey(info.get()) : nullptr);
    }
    return nullptr;
}

} // namespace krl::nss
