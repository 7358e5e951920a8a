#include "mobiledevice/provider/security/PairRecord.h"

#include <utility>

namespace krl::provider {

PairRecord::PairRecord(PlistRef contents, std::string hostId)
    : contents_(std::move(contents)), hostId_(std::move(hostId)) {}

std::optional<PairRecord> PairRecord::parse(std::span<const std::byte> bytes) {
    PlistRef contents = parseDictionary(bytes);
    std::optional<std::string> hostId = stringAt(contents, "HostID");
    if (!hostId) {
        return std::nullopt;
    }
    return PairRecord(std::move(contents), std::move(*hostId));
}

std::optional<std::string> PairRecord::systemBuid() const {
    return stringAt(contents_, "SystemBUID");
}

std::string PairRecord::dataText(const char* key) const {
    return dataAt(contents_, key).value_or("");
}

void PairRecord::setData(const char* key, const std::string& bytes) {
    provider::setData(contents_, key, bytes);
}

std::string PairRecord::xml() const {
    return xmlOf(contents_);
}

PlistRef PairRecord::shownToPhone() const {
    PlistRef shown = newDictionary();
    for (const char* key :
         {"DeviceCertificate", "HostCertificate", "HostID", "RootCertificate", "SystemBUID"}) {
        if (plist_t item = plist_dict_get_item(contents_.get(), key)) {
            plist_dict_set_item(shown.get(), key, plist_copy(item));
        }
    }
    return shown;
}

} // namespace krl::provider
