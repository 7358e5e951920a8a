#include <gtest/gtest.h>

extern "C" int checksThatHoldInC(void);

namespace {

TEST(Headers, WorkInC) {
    EXPECT_EQ(checksThatHoldInC(), 5);
}

} // namespace
