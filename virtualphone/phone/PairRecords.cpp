#include "virtualphone/phone/PairRecords.h"

namespace virtualphone {

namespace {

std::string pemLike(const std::string& kind) {
    return "-----BEGIN " + kind + "-----\nVmlydHVhbCBwaG9uZSwgbm90IGEga2V5Lg==\n-----END " + kind +
           "-----\n";
}

} // namespace

std::optional<std::string> PairRecords::read(const std::string& udid) const {
    const std::lock_guard lock(mutex_);
    const auto found = records_.find(udid);
    return found == records_.end() ? std::nullopt : std::optional(found->second);
}

void PairRecords::save(const std::string& udid, const std::string& contents) {
    const std::lock_guard lock(mutex_);
    records_[udid] = contents;
}

bool PairRecords::remove(const std::string& udid) {
    const std::lock_guard lock(mutex_);
    return records_.erase(udid) > 0;
}

const std::string& hostSystemBuid() {
    static const std::string buid = "8E1D0B6A-52C7-4D3F-9A60-C4B7715E2F08";
    return buid;
}

const std::string& hostHostId() {
    static const std::string id = "2F6A9C14-7B3E-4E58-A1D2-90B5C8E3760D";
    return id;
}

std::string newPairRecord(const SessionKeys* keys) {
    const Plist record = newDictionary();
    setItem(record, "HostID", hostHostId());
    setItem(record, "SystemBUID", hostSystemBuid());
    std::map<std::string, std::string> parts;
    if (keys != nullptr) {
        parts = keys->pairRecordParts();
    } else {
        for (const char* const key : {"DeviceCertificate", "HostCertificate", "RootCertificate"}) {
            parts[key] = pemLike("CERTIFICATE");
        }
        for (const char* const key : {"HostPrivateKey", "RootPrivateKey"}) {
            parts[key] = pemLike("RSA PRIVATE KEY");
        }
    }
    for (const auto& [key, pem] : parts) {
        setItem(record, key, newData(pem));
    }
    return toXml(record);
}

std::string hostIdOf(const std::string& contents) {
    const Plist record = fromBytes(contents);
    return isDictionary(record.get()) ? stringOf(itemOf(record, "HostID")).value_or("") : "";
}

HostCertificates certificatesIn(plist_t record) {
    const auto textAt = [&](const char* key) {
        return isDictionary(record) ? dataOf(plist_dict_get_item(record, key)).value_or("")
                                    : std::string();
    };
    return {textAt("HostCertificate"), textAt("RootCertificate"), textAt("DeviceCertificate")};
}

HostCertificates certificatesOf(const std::string& contents) {
    return certificatesIn(fromBytes(contents).get());
}

} // namespace virtualphone
