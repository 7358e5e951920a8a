// Where the mux daemon is looked for.

#include "mobiledevice/mux/MuxAddress.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <cstring>

namespace krl::testing {
namespace {

// An address as a text: a path, or a number and a port.
std::string textOf(const SocketAddress& address) {
    const void* bytes = &address.storage;
    char number[INET6_ADDRSTRLEN] = "";
    switch (address.storage.ss_family) {
    case AF_UNIX:
        return static_cast<const sockaddr_un*>(bytes)->sun_path;
    case AF_INET: {
        const auto& place = *static_cast<const sockaddr_in*>(bytes);
        ::inet_ntop(AF_INET, &place.sin_addr, number, sizeof number);
        return std::string(number) + " " + std::to_string(ntohs(place.sin_port));
    }
    case AF_INET6: {
        const auto& place = *static_cast<const sockaddr_in6*>(bytes);
        ::inet_ntop(AF_INET6, &place.sin6_addr, number, sizeof number);
        return std::string(number) + " " + std::to_string(ntohs(place.sin6_port));
    }
    default:
        return "?";
    }
}

std::vector<std::string> textsOf(const std::string& setting) {
    std::vector<std::string> texts;
    for (const SocketAddress& address : muxAddresses(setting)) {
        texts.push_back(textOf(address));
    }
    return texts;
}

using Texts = std::vector<std::string>;

TEST(MuxAddress, IsAPathOrAHostAndItsPort) {
    EXPECT_EQ(textsOf("UNIX:/run/other"), Texts{"/run/other"});
    EXPECT_EQ(textsOf("UNIX:relative:1"), Texts{"relative:1"});
    EXPECT_EQ(textsOf("127.0.0.1:27015"), Texts{"127.0.0.1 27015"});
    EXPECT_EQ(textsOf("127.0.0.1:65535"), Texts{"127.0.0.1 65535"});
    EXPECT_EQ(textsOf("[::1]:27015"), Texts{"::1 27015"});
    EXPECT_EQ(textsOf("::1:27015"), Texts{"::1 27015"});
}

TEST(MuxAddress, IsTheUsualSocketWhenNothingElseIsSaid) {
    for (const char* setting :
         {"", "UNIX:", "nonsense", "/run/other", "host:", ":1", "127.0.0.1:0", "127.0.0.1:65536",
          "127.0.0.1:99999999999999999999", "127.0.0.1:-1", "127.0.0.1:1x", "127.0.0.1: 1"}) {
        EXPECT_EQ(textsOf(setting), Texts{"/var/run/usbmuxd"}) << setting;
    }
}

TEST(MuxAddress, OfAPathIsNoneWhenItIsTooLong) {
    const std::string longest(sizeof(sockaddr_un::sun_path) - 1, 'x');
    EXPECT_EQ(textsOf("UNIX:" + longest), Texts{longest});
    EXPECT_EQ(textsOf("UNIX:" + longest + "x"), Texts{});
}

TEST(MuxAddress, OfAHostThatIsNoneIsNone) {
    EXPECT_EQ(textsOf("[]:1"), Texts{});
    EXPECT_EQ(textsOf("[::1::]:1"), Texts{});
}

} // namespace
} // namespace krl::testing
