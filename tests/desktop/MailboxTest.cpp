#include "desktop/bridge/Mailbox.h"

#include <gmock/gmock.h>

#include <poll.h>

#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace krl::desktop {
namespace {

bool isReadable(int descriptor) {
    pollfd readable{descriptor, POLLIN, 0};
    return poll(&readable, 1, 0) == 1;
}

} // namespace

TEST(Mailbox, DeliversInOrderAndIsReadableUntilThen) {
    Mailbox mailbox;
    std::vector<int> seen;
    EXPECT_FALSE(isReadable(mailbox.descriptor()));
    mailbox.put([&] { seen.push_back(1); });
    mailbox.put([&] { seen.push_back(2); });
    EXPECT_TRUE(isReadable(mailbox.descriptor()));
    mailbox.deliver();
    EXPECT_THAT(seen, ElementsAre(1, 2));
    EXPECT_FALSE(isReadable(mailbox.descriptor()));
}

TEST(Mailbox, KeepsForTheNextTimeWhatALetterPutsIn) {
    Mailbox mailbox;
    std::vector<int> seen;
    mailbox.put([&] { mailbox.put([&] { seen.push_back(1); }); });
    mailbox.deliver();
    EXPECT_THAT(seen, IsEmpty());
    EXPECT_TRUE(isReadable(mailbox.descriptor()));
    mailbox.deliver();
    EXPECT_THAT(seen, ElementsAre(1));
}

TEST(Mailbox, DeliversAFloodBitByBit) {
    Mailbox mailbox;
    size_t seen = 0;
    for (size_t i = 0; i < Mailbox::kMostAtOnce + 1; ++i) {
        mailbox.put([&] { ++seen; });
    }
    mailbox.deliver();
    EXPECT_EQ(seen, Mailbox::kMostAtOnce);
    EXPECT_TRUE(isReadable(mailbox.descriptor()));
    mailbox.deliver();
    EXPECT_EQ(seen, Mailbox::kMostAtOnce + 1);
    EXPECT_FALSE(isReadable(mailbox.descriptor()));
}

TEST(Mailbox, TakesLettersFromOtherThreads) {
    Mailbox mailbox;
    int count = 0;
    std::thread one([&] { mailbox.put([&] { ++count; }); });
    std::thread other([&] { mailbox.put([&] { ++count; }); });
    one.join();
    other.join();
    mailbox.deliver();
    EXPECT_EQ(count, 2);
}

} // namespace krl::desktop
