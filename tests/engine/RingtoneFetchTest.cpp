// Ringtones of a scripted phone, fetched into files.
#include "engine/fetch/RingtoneFetch.h"

#include "tests/engine/SafeFixture.h"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>
#include <iterator>

using testing::ElementsAre;
using testing::IsEmpty;

namespace krl::engine::testing {
namespace {

namespace fs = std::filesystem;

class RingtoneFetch : public SafeTest {
protected:
    RingtoneFetch() { put({.catalogue = {}, .files = {{"ABCD.m4r", "the sound"}}}); }

    static PhoneRingtone ringtone(uint64_t size) {
        return {"Harp", "1", "m4r", "ABCD.m4r", "ABCD.m4r", size};
    }

    fs::path place() const { return here_.path() / "Harp.m4r"; }

    Fetched fetch(const PhoneRingtone& ringtone, const FetchWish& wish = {}) {
        PhoneFiles files(device());
        return fetchRingtone(files, ringtone, place(), wish);
    }

    std::optional<FailureKind> failureOf(const PhoneRingtone& ringtone) {
        try {
            fetch(ringtone);
        } catch (const Failure& failure) {
            return failure.kind();
        }
        return std::nullopt;
    }

    std::string contents() const {
        std::ifstream file(place(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(here_.path())) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

private:
    virtualphone::testing::TemporaryFolder here_;
};

} // namespace

TEST_F(RingtoneFetch, MovesAsItComes) {
    std::vector<uint64_t> moves;
    EXPECT_EQ(fetch(ringtone(9), {.moves = [&](uint64_t done) { moves.push_back(done); }}),
              Fetched::IsNew);
    EXPECT_EQ(contents(), "the sound");
    EXPECT_THAT(names(), ElementsAre("Harp.m4r"));
    ASSERT_FALSE(moves.empty());
    EXPECT_EQ(moves.back(), 9U);
}

TEST_F(RingtoneFetch, WhatIsThereAlreadyIsLeftAlone) {
    ASSERT_EQ(fetch(ringtone(9)), Fetched::IsNew);
    const auto written = fs::last_write_time(place());
    EXPECT_EQ(fetch(ringtone(9), {.replaces = true}), Fetched::WasThereAlready);
    EXPECT_EQ(fs::last_write_time(place()), written);
    EXPECT_THAT(names(), ElementsAre("Harp.m4r"));
}

TEST_F(RingtoneFetch, AFileOfAnotherLengthThanWasSaidIsNone) {
    for (const uint64_t size : {8U, 10U}) {
        EXPECT_EQ(failureOf(ringtone(size)), FailureKind::CannotOpen);
        EXPECT_THAT(names(), IsEmpty());
    }
    PhoneRingtone missing = ringtone(9);
    missing.file = "GONE.m4r";
    EXPECT_EQ(failureOf(missing), FailureKind::CannotOpen);
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(RingtoneFetch, NothingIsTakenBeyondTheLengthThatWasSaid) {
    PhoneFiles files(device());
    uint64_t taken = 0;
    EXPECT_THROW(
        readRingtone(files, ringtone(8), [&](std::string_view piece) { taken += piece.size(); }),
        Failure);
    EXPECT_LE(taken, 8U);
}

TEST_F(RingtoneFetch, AFileIsReadToItsEndWhateverLengthWasSaid) {
    constexpr uint64_t kLength = 3'000'000; // more than is asked for at once
    std::string sound;
    for (uint64_t i = 0; i < kLength; ++i) {
        sound += static_cast<char>(i * 31 % 251);
    }
    put({.catalogue = {}, .files = {{"ABCD.m4r", sound}}});
    PhoneFiles files(device());
    for (const std::optional<uint64_t> said : std::initializer_list<std::optional<uint64_t>>{
             std::nullopt, 0, 1, 65'536, kLength - 65'536, kLength - 1, kLength, kLength + 1,
             std::numeric_limits<uint64_t>::max()}) {
        SCOPED_TRACE(said ? std::to_string(*said) : "not said");
        std::string taken;
        EXPECT_TRUE(files.read(
            ringtonePath("ABCD.m4r"), [&](std::string_view piece) { taken += piece; }, said));
        EXPECT_TRUE(taken == sound);
    }
}

TEST_F(RingtoneFetch, AnotherContentOfTheSameLengthIsNotTakenForIt) {
    ASSERT_EQ(fetch(ringtone(9)), Fetched::IsNew);
    put({.catalogue = {}, .files = {{"ABCD.m4r", "THE SOUND"}}});
    EXPECT_EQ(failureOf(ringtone(9)), FailureKind::NameTaken);
    EXPECT_EQ(contents(), "the sound");
    EXPECT_EQ(fetch(ringtone(9), {.replaces = true}), Fetched::IsNew);
    EXPECT_EQ(contents(), "THE SOUND");
}

TEST_F(RingtoneFetch, WhatIsNoFileIsNotReplacedUnasked) {
    fs::create_symlink("nowhere", place());
    EXPECT_EQ(failureOf(ringtone(9)), FailureKind::NameTaken);
    EXPECT_EQ(fetch(ringtone(9), {.replaces = true}), Fetched::IsNew);
    EXPECT_FALSE(fs::is_symlink(place()));
    EXPECT_EQ(contents(), "the sound");
}

TEST_F(RingtoneFetch, WhoListensCanEndIt) {
    EXPECT_THROW(fetch(ringtone(9), {.moves = [](uint64_t) { throw std::runtime_error("no"); }}),
                 std::runtime_error);
    EXPECT_THAT(names(), IsEmpty());
}

TEST(FileNamesOf, PutsTitlesThatStayAsTheyAreFirst) {
    const std::vector<PhoneRingtone> ringtones{{"a/b", "1", "m4r", "1.m4r", "", 1},
                                               {"a_b", "2", "m4r", "2.m4r", "", 1},
                                               {"A_B", "3", "mp3", "3.MP3", "", 1}};
    EXPECT_EQ(fileNamesOf(ringtones),
              (std::map<std::string, std::string>{
                  {"a_b", "a_b.m4r"}, {"A_B", "A_B.mp3"}, {"a/b", "a_b (2).m4r"}}));
}

} // namespace krl::engine::testing
