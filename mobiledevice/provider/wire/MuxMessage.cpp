#include "mobiledevice/provider/wire/MuxMessage.h"

#include <endian.h>

#include <limits>
#include <utility>

namespace krl::provider {

namespace {

constexpr uint32_t kListVersion = 1;
constexpr uint32_t kListMessage = 8;

// Later models have 24 digits, which everybody else writes with a hyphen.
std::string udidOf(std::string serialNumber) {
    constexpr size_t kLaterDigits = 24;
    constexpr size_t kBeforeHyphen = 8;
    if (serialNumber.size() == kLaterDigits) {
        serialNumber.insert(kBeforeHyphen, 1, '-');
    }
    return serialNumber;
}

} // namespace

PlistRef newMuxRequest(const char* type) {
    PlistRef request = newDictionary();
    setString(request, "MessageType", type);
    setString(request, "ClientVersionString", "KRLVesk");
    setString(request, "ProgName", "KRLVesk");
    return request;
}

std::string muxMessage(const PlistRef& request, uint32_t tag) {
    const std::string body = xmlOf(request);
    const MuxHeader header{htole32(static_cast<uint32_t>(sizeof(MuxHeader) + body.size())),
                           htole32(kListVersion), htole32(kListMessage), htole32(tag)};
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + body;
}

std::optional<size_t> muxBodyBytes(const MuxHeader& header, size_t most) {
    const size_t length = le32toh(header.length);
    const bool isList =
        le32toh(header.version) == kListVersion && le32toh(header.message) == kListMessage;
    if (!isList || length < sizeof header || length - sizeof header > most) {
        return std::nullopt;
    }
    return length - sizeof header;
}

std::optional<uint32_t> muxIdIn(const PlistRef& message) {
    const std::optional<uint64_t> id = unsignedAt(message, "DeviceID");
    if (!id || *id == 0 || *id > std::numeric_limits<uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(*id);
}

std::optional<MuxAttachment> muxAttachmentIn(const PlistRef& message) {
    const std::optional<uint32_t> id = muxIdIn(message);
    const PlistRef properties = dictionaryAt(message, "Properties");
    if (!id || !properties || stringAt(properties, "ConnectionType") != "USB") {
        return std::nullopt;
    }
    std::optional<std::string> serialNumber = stringAt(properties, "SerialNumber");
    if (!serialNumber) {
        return std::nullopt;
    }
    return MuxAttachment{*id, udidOf(std::move(*serialNumber))};
}

bool isMuxConsent(const PlistRef& message) {
    return stringAt(message, "MessageType") == "Result" && unsignedAt(message, "Number") == 0;
}

} // namespace krl::provider
