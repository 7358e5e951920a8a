// How many system calls a write makes: this program's sendmsg() and recv() count themselves.

#include "mobiledevice/provider/services/AfcClient.h"
#include "tests/mobiledevice/provider/AfcReplies.h"
#include "tests/mobiledevice/provider/SocketPair.h"

#include <dlfcn.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace krl::provider::testing {
namespace {

// What the client's thread has called. The peer's own calls wait, and are not meant.
thread_local std::vector<size_t> partsSent;
thread_local size_t receiveCalls = 0;

template <typename Function>
Function* original(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace
} // namespace krl::provider::testing

extern "C" {

ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
    static const auto next = krl::provider::testing::original<decltype(sendmsg)>("sendmsg");
    krl::provider::testing::partsSent.push_back(message->msg_iovlen);
    return next(descriptor, message, flags);
}

ssize_t recv(int descriptor, void* target, size_t size, int flags) {
    static const auto next = krl::provider::testing::original<decltype(recv)>("recv");
    krl::provider::testing::receiveCalls += (flags & MSG_DONTWAIT) != 0 ? 1 : 0;
    return next(descriptor, target, size, flags);
}
}

namespace krl::provider::testing {
namespace {

TEST(WriteCalls, SixteenPiecesLeaveWithOneCallAndTheirAnswersComeWithOne) {
    constexpr size_t kPieces = 16;
    const std::vector<std::byte> contents(kPieces * 65536);
    SocketPair pair;
    AfcClient client(pair.channel());
    for (uint64_t number = 1; number <= kPieces; ++number) {
        pair.say(afcStatus(number, 0).bytes());
    }
    std::thread phone([&] { pair.hear(kPieces * (48 + 65536)); });
    EXPECT_EQ(client.writeFile(7, contents), 0);
    phone.join();
    // A header and the data of each, which stay where they are. What follows is what the socket
    // did not take.
    ASSERT_FALSE(partsSent.empty());
    EXPECT_EQ(partsSent.front(), 2 * kPieces);
    EXPECT_EQ(receiveCalls, 1u);
}

TEST(WriteCalls, ASmallWriteIsOneCall) {
    const std::vector<std::byte> contents(100'000);
    SocketPair pair;
    AfcClient client(pair.channel());
    pair.say(afcStatus(1, 0).bytes() + afcStatus(2, 0).bytes());
    partsSent.clear();
    receiveCalls = 0;
    EXPECT_EQ(client.writeFile(7, contents), 0);
    EXPECT_EQ(partsSent, std::vector<size_t>{4});
    EXPECT_EQ(receiveCalls, 1u);
}

} // namespace
} // namespace krl::provider::testing
