#include "tags/Title.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <string>

namespace {

std::string titleOfSample(const std::string& name, const std::string& as) {
    return krl::tags::titleIn(as, open((KRL_SAMPLES "/" + name).c_str(), O_RDONLY | O_CLOEXEC));
}

} // namespace

TEST(TitleIn, TheExtensionSaysHowAFileIsRead) {
    EXPECT_EQ(titleOfSample("tick.wav", "tick.wav"), "Tick Tock");
    EXPECT_EQ(titleOfSample("tick.wav", "tick.mp3"), "");
}

TEST(TitleIn, WithoutAKnownExtensionTheContentDoes) {
    EXPECT_EQ(titleOfSample("horn.aiff", "horn"), "Horn");
    EXPECT_EQ(titleOfSample("sunrise.m4r", "sunrise.m4r"), "Sunrise 🌅");
}
