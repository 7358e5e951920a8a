// What is shown of audio files, without a phone.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

using testing::SizeIs;

namespace vesk::testing {
namespace {

class Inspect : public VeskTest {};

const std::string kSamples = KRL_SAMPLES;

} // namespace

TEST_F(Inspect, FilesThatPlayAreASuccess) {
    const VeskResult result = vesk({"inspect", kSamples + "/sunrise.m4r", kSamples + "/bells.mp3"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, AllOf(HasSubstr("AAC-LC in MPEG-4"), HasSubstr("Sunrise 🌅"),
                                  HasSubstr("plays on firmware 1.0.x and 1.1.x"),
                                  HasSubstr("plays on firmware 1.0.x to 1.1.2")));
    EXPECT_THAT(result.err, IsEmpty());
}

TEST_F(Inspect, OneThatDoesNotIsNotAndTheOthersAreShown) {
    const std::string wrong = local("wrong.m4r", "no song at all");
    const std::string missing = localFolder() + "/missing.mp3";
    const VeskResult result = vesk({"inspect", wrong, missing, kSamples + "/sunrise.m4r"});
    EXPECT_THAT(result, ExitsWith(ExitCode::NotPlayed));
    EXPECT_THAT(result.out, AllOf(HasSubstr("not known as a file with sound"), HasSubstr("Sunrise"),
                                  Not(HasSubstr(missing))));
    EXPECT_THAT(result.err, AllOf(HasSubstr("error: \"" + missing), HasSubstr("Check the path")));
}

TEST_F(Inspect, TheDocumentHasEveryFileInItsOrder) {
    const std::string missing = localFolder() + "/missing.mp3";
    const VeskResult result =
        vesk({"inspect", "--json", missing, kSamples + "/bells.mp3", kSamples + "/sunrise.m4r"});
    EXPECT_THAT(result, ExitsWith(ExitCode::NotPlayed));
    const auto files = result.json().at("files");
    ASSERT_THAT(files, SizeIs(3));
    EXPECT_EQ(files[0].at("error").at("code"), 21);
    EXPECT_EQ(files[1].at("verdict"), "plays-on-older-firmware");
    EXPECT_EQ(files[1].at("playsThrough112"), true);
    EXPECT_EQ(files[1].at("playsFrom113"), false);
    EXPECT_EQ(files[2].at("verdict"), "plays");
    EXPECT_EQ(files[2].at("codec"), "AAC-LC");
    EXPECT_THAT(files[2].at("reasons"), IsEmpty());
}

} // namespace vesk::testing
