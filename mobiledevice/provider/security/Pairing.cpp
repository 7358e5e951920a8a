#include "mobiledevice/provider/security/Pairing.h"

#include "nss/Certificates.h"
#include "nss/Keys.h"
#include "nss/Runtime.h"
#include <CoreFoundation/CFText.h>
#include <CoreFoundation/CoreFoundation.h>
#include <MobileDevice/MobileDevice.h>

#include <chrono>

namespace krl::provider {

namespace {

constexpr int kKeyBits = 2048;
constexpr auto kClockTolerance = std::chrono::hours(24);
constexpr auto kLifetime = std::chrono::hours(24 * 365 * 10);
constexpr const char* kRootName = "KRLVesk Root";

std::string certificateFor(const char* name, SECKEYPublicKey* key, const nss::KeyPair& root,
                           bool mayIssue = false) {
    const auto now = std::chrono::system_clock::now();
    // SHA-1: firmware of those years knows no better.
    return nss::newCertificatePem({.subject = name,
                                   .issuer = kRootName,
                                   .subjectKey = key,
                                   .issuerKey = root.privateKey.get(),
                                   .mayIssue = mayIssue,
                                   .withSha1 = true,
                                   .notBefore = now - kClockTolerance,
                                   .notAfter = now + kLifetime});
}

std::string newHostId() {
    const auto uuid = cf::adopt(CFUUIDCreate(nullptr));
    const auto text = cf::adopt(CFUUIDCreateString(nullptr, uuid.get()));
    return cf::utf8(text.get()).value_or("");
}

} // namespace

int32_t newPairRecord(const PairingFacts& facts, PlistRef& record) {
    if (!nss::start()) {
        return kAMDSessionNotSupported;
    }
    const nss::PublicKey deviceKey = nss::parsePublicKey(facts.devicePublicKey);
    if (!deviceKey) {
        return kAMDBadReply;
    }
    const nss::KeyPair root = nss::newKeyPair(kKeyBits);
    const nss::KeyPair host = nss::newKeyPair(kKeyBits);
    if (!root.privateKey || !host.privateKey) {
        return kAMDNoResources;
    }
    const std::pair<const char*, std::string> parts[] = {
        {"RootPrivateKey", nss::privateKeyPem(root)},
        {"HostPrivateKey", nss::privateKeyPem(host)},
        {"RootCertificate",
         certificateFor(kRootName, root.publicKey.get(), root, /*mayIssue=*/true)},
        {"HostCertificate", certificateFor("KRLVesk Host", host.publicKey.get(), root)},
        {"DeviceCertificate", certificateFor("KRLVesk Device", deviceKey.get(), root)},
    };
    PlistRef made = newDictionary();
    for (const auto& [key, pem] : parts) {
        if (pem.empty()) {
            return kAMDNoResources;
        }
        setData(made, key, pem);
    }
    setString(made, "HostID", newHostId());
    setString(made, "SystemBUID", facts.systemBuid);
    if (facts.wifiAddress) {
        setString(made, "WiFiMACAddress", *facts.wifiAddress);
    }
    record = std::move(made);
    return 0;
}

} // namespace krl::provider
