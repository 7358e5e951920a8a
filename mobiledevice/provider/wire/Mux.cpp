#include "mobiledevice/provider/wire/Mux.h"

#include "mobiledevice/mux/MuxAddress.h"
#include "mobiledevice/provider/wire/IoStatus.h"
#include "mobiledevice/provider/wire/MuxMessage.h"
#include "mobiledevice/provider/wire/UniqueDescriptor.h"

#include <MobileDevice/MobileDevice.h>
#include <arpa/inet.h>
#include <endian.h>
#include <sys/socket.h>

#include <array>
#include <span>
#include <utility>

namespace krl::provider {

namespace {

// A pair record, the longest answer, takes some ten kilobytes.
constexpr size_t kMaxBodyBytes = plist::kMostBytes;

constexpr uint32_t kTag = 1;

IoResult send(Channel& channel, const PlistRef& request) {
    std::string message = muxMessage(request, kTag);
    std::array parts{iovec{message.data(), message.size()}};
    return channel.send(parts);
}

int32_t receive(Channel& channel, PlistRef& answer) {
    MuxHeader header{};
    if (const int32_t status =
            statusOf(channel.receive(std::as_writable_bytes(std::span(&header, 1))))) {
        return status;
    }
    const std::optional<size_t> length = muxBodyBytes(header, kMaxBodyBytes);
    if (!length || le32toh(header.tag) != kTag) {
        return kAMDNotConnected;
    }
    std::vector<std::byte> body(*length);
    if (const int32_t status = statusOf(channel.receive(body))) {
        return status;
    }
    answer = parseDictionary(body);
    return answer ? 0 : int32_t{kAMDNotConnected};
}

} // namespace

MuxClient::MuxClient(Keeper keeper, End end) : keeper_(std::move(keeper)), end_(end) {}

int32_t MuxClient::connect(uint32_t muxId, uint16_t port, std::shared_ptr<Channel>& tunnel) const {
    const PlistRef request = newMuxRequest("Connect");
    setUnsigned(request, "DeviceID", muxId);
    setUnsigned(request, "PortNumber", htons(port)); // as an integer, and yet in network order
    std::shared_ptr<Channel> channel;
    PlistRef answer;
    if (const int32_t status = ask(request, channel, answer)) {
        return status;
    }
    if (!isMuxConsent(answer)) {
        return kAMDNotConnected;
    }
    tunnel = std::move(channel);
    return 0;
}

int32_t MuxClient::readPairRecord(const std::string& udid, std::vector<std::byte>& contents) const {
    const PlistRef request = newMuxRequest("ReadPairRecord");
    setString(request, "PairRecordID", udid);
    std::shared_ptr<Channel> channel;
    PlistRef answer;
    if (const int32_t status = ask(request, channel, answer)) {
        return status;
    }
    const std::optional<std::string> record = dataAt(answer, "PairRecordData");
    if (!record) {
        return kAMDNotPaired;
    }
    const auto bytes = std::as_bytes(std::span(*record));
    contents.assign(bytes.begin(), bytes.end());
    return 0;
}

int32_t MuxClient::savePairRecord(uint32_t muxId, const std::string& udid,
                                  const std::string& contents) const {
    const PlistRef request = newMuxRequest("SavePairRecord");
    setString(request, "PairRecordID", udid);
    setData(request, "PairRecordData", contents);
    setUnsigned(request, "DeviceID", muxId);
    return askConsent(request, kAMDPairRecordNotKept);
}

int32_t MuxClient::deletePairRecord(const std::string& udid) const {
    const PlistRef request = newMuxRequest("DeletePairRecord");
    setString(request, "PairRecordID", udid);
    return askConsent(request, kAMDPairRecordNotKept);
}

int32_t MuxClient::listDevices(std::vector<uint32_t>& muxIds) const {
    std::shared_ptr<Channel> channel;
    PlistRef answer;
    if (const int32_t status = ask(newMuxRequest("ListDevices"), channel, answer)) {
        return status;
    }
    const std::optional<std::vector<PlistRef>> devices = dictionariesAt(answer, "DeviceList");
    if (!devices) {
        return kAMDNotConnected;
    }
    for (const PlistRef& device : *devices) {
        if (const std::optional<MuxAttachment> phone = muxAttachmentIn(device)) {
            muxIds.push_back(phone->muxId);
        }
    }
    return 0;
}

int32_t MuxClient::readSystemBuid(std::string& buid) const {
    std::shared_ptr<Channel> channel;
    PlistRef answer;
    if (const int32_t status = ask(newMuxRequest("ReadBUID"), channel, answer)) {
        return status;
    }
    std::optional<std::string> told = stringAt(answer, "BUID");
    if (!told) {
        return kAMDNotConnected;
    }
    buid = std::move(*told);
    return 0;
}

int32_t MuxClient::askConsent(const PlistRef& request, int32_t refused) const {
    std::shared_ptr<Channel> channel;
    PlistRef answer;
    if (const int32_t status = ask(request, channel, answer)) {
        return status;
    }
    return isMuxConsent(answer) ? 0 : refused;
}

int32_t MuxClient::ask(const PlistRef& request, std::shared_ptr<Channel>& channel,
                       PlistRef& answer) const {
    if (const int32_t status = reachDaemon(channel)) {
        return status;
    }
    if (const int32_t status = statusOf(send(*channel, request))) {
        return status;
    }
    return receive(*channel, answer);
}

int32_t MuxClient::reachDaemon(std::shared_ptr<Channel>& channel) const {
    for (const SocketAddress& address : muxAddresses(muxSetting())) {
        UniqueDescriptor socket(
            ::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!socket) {
            return kAMDNoResources;
        }
        channel = std::make_shared<Channel>(std::move(socket));
        if (end_) {
            channel->beginExchange(*end_);
        } else {
            channel->beginExchange();
        }
        keeper_(channel);
        const auto* generic = reinterpret_cast<const sockaddr*>(&address.storage);
        switch (channel->connect(generic, address.size)) {
        case IoResult::Done:
            return 0;
        case IoResult::Cancelled:
            return kAMDCancelled;
        case IoResult::Closed:
        case IoResult::TimedOut:
            break;
        }
    }
    return kAMDNoMuxDaemon;
}

} // namespace krl::provider
