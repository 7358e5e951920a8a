// Any bytes as what a phone answers. The first byte says what was asked. Every answer is taken or
// refused; a read never claims more bytes than fit.

#include "mobiledevice/provider/services/AfcClient.h"
#include "mobiledevice/provider/services/LockdownClient.h"
#include "mobiledevice/provider/services/NotificationProxyClient.h"
#include "mobiledevice/provider/wire/CallTimeout.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace {

using namespace krl::provider;

using ChannelRef = std::shared_ptr<Channel>;

constexpr size_t kMost = 60'000; // fits into the socket's buffer

LockdownClient lockdownOn(const ChannelRef& channel) {
    return {channel, std::make_unique<ClearSessionsOnly>()};
}

const PairRecord& pairRecord() {
    constexpr std::string_view kText = "<plist version=\"1.0\"><dict><key>HostID</key>"
                                       "<string>host</string></dict></plist>";
    static const PairRecord record = *PairRecord::parse(std::as_bytes(std::span(kText)));
    return record;
}

void readFile(const ChannelRef& channel) {
    std::vector<std::byte> target(kMost);
    size_t received = 0;
    AfcClient(channel).readFile(1, target, received);
    if (received > target.size()) {
        std::abort();
    }
}

void listFolder(const ChannelRef& channel) {
    AfcClient client(channel);
    std::vector<char> names;
    client.readDirectory("/", names);
    client.fileInfo("/", names);
    client.deviceInfo(names);
}

void changeFiles(const ChannelRef& channel) {
    AfcClient client(channel);
    uint64_t file = 0;
    client.openFile("/a", 3, file);
    const std::vector<std::byte> bytes(1000);
    client.writeFile(file, bytes);
    client.closeFile(file);
    client.renamePath("/a", "/b");
}

void askValues(const ChannelRef& channel) {
    PlistRef answer;
    LockdownClient client = lockdownOn(channel);
    client.getValue(std::nullopt, "ProductVersion", answer);
    client.getValue("com.apple.mobile.iTunes", std::nullopt, answer);
}

void startServices(const ChannelRef& channel) {
    LockdownClient client = lockdownOn(channel);
    client.validatePair(pairRecord());
    client.startSession(pairRecord(), std::nullopt, Protocol::Tls);
    ServiceAddress service{};
    client.startService("com.apple.afc", service);
    client.stopSession();
}

void endProxy(const ChannelRef& channel) {
    NotificationProxyClient client(channel);
    client.post("x");
    client.shutdown();
}

const std::array<std::function<void(const ChannelRef&)>, 6> kQuestions = {
    readFile, listFolder, changeFiles, askValues, startServices, endProxy};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > kMost) {
        return 0;
    }
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw std::runtime_error("socketpair failed");
    }
    const UniqueDescriptor peer(ends[1]);
    const auto channel = std::make_shared<Channel>(UniqueDescriptor(ends[0]));
    if (write(peer.get(), data + 1, size - 1) != static_cast<ssize_t>(size - 1)) {
        throw std::runtime_error("the socket's buffer is too small");
    }
    shutdown(peer.get(), SHUT_WR);
    kQuestions[data[0] % kQuestions.size()](channel);
    return 0;
}
