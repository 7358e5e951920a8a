#include "mobiledevice/provider/wire/PlistMessenger.h"

#include "mobiledevice/provider/wire/IoStatus.h"

#include <MobileDevice/MobileDevice.h>
#include <endian.h>

#include <array>
#include <limits>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace krl::provider {

namespace {

// All of a phone's values together take some tens of kilobytes.
constexpr uint32_t kMaxMessageBytes = plist::kMostBytes;

} // namespace

PlistMessenger::PlistMessenger(std::shared_ptr<Channel> channel) : channel_(std::move(channel)) {}

int32_t PlistMessenger::send(const PlistRef& message) {
    std::string xml = xmlOf(message);
    if (xml.empty()) {
        return kAMDNoResources;
    }
    channel_->beginExchange();
    uint32_t header = htobe32(static_cast<uint32_t>(xml.size()));
    std::array<iovec, 2> parts{iovec{&header, sizeof header}, iovec{xml.data(), xml.size()}};
    return failed(channel_->send(parts));
}

int32_t PlistMessenger::receive(PlistRef& message) {
    uint32_t header = 0;
    if (const int32_t status =
            failed(channel_->receive(std::as_writable_bytes(std::span(&header, 1))))) {
        return status;
    }
    const uint32_t length = be32toh(header);
    if (length > kMaxMessageBytes) {
        return badReply();
    }
    std::vector<std::byte> body(length);
    if (const int32_t status = failed(channel_->receive(body))) {
        return status;
    }
    message = parseDictionary(body);
    return message ? 0 : badReply();
}

int32_t PlistMessenger::badReply() {
    channel_->shutdown();
    return kAMDBadReply;
}

int32_t PlistMessenger::failed(IoResult result) {
    if (result != IoResult::Done) {
        channel_->shutdown(); // of one that was cancelled already this changes nothing
    }
    return statusOf(result);
}

} // namespace krl::provider
