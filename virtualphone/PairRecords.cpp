#include "virtualphone/PairRecords.h"

#include "virtualphone/PropertyList.h"

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

std::string newPairRecord() {
    const Plist record = newDictionary();
    setItem(record, "HostID", hostHostId());
    setItem(record, "SystemBUID", hostSystemBuid());
    for (const char* const key : {"DeviceCertificate", "HostCertificate", "RootCertificate"}) {
        setItem(record, key, newData(pemLike("CERTIFICATE")));
    }
    for (const char* const key : {"HostPrivateKey", "RootPrivateKey"}) {
        setItem(record, key, newData(pemLike("RSA PRIVATE KEY")));
    }
    return toXml(record);
}

std::string hostIdOf(const std::string& contents) {
    const Plist record = fromBytes(contents);
    return isDictionary(record.get()) ? stringOf(itemOf(record, "HostID")).value_or("") : "";
}

} // namespace virtualphone
