#include "engine/phones/Device.h"

#include <gtest/gtest.h>

using krl::engine::firmwareNumberOf;

TEST(FirmwareNumber, IsTheLibrarysNumberOfAVersion) {
    EXPECT_EQ(firmwareNumberOf("1.0"), 1000);
    EXPECT_EQ(firmwareNumberOf("1.0.2"), 1002);
    EXPECT_EQ(firmwareNumberOf("1.1.1"), 1011);
    EXPECT_EQ(firmwareNumberOf("1.1.4"), 1014);
    EXPECT_EQ(firmwareNumberOf("2.2.1"), 2021);
}

TEST(FirmwareNumber, OfWhatIsNoVersionIsThatOfAnUnknownOne) {
    EXPECT_EQ(firmwareNumberOf(""), 1014);
    EXPECT_EQ(firmwareNumberOf("unknown"), 1014);
    EXPECT_EQ(firmwareNumberOf("3"), 1014);
}
