#include "audio/preparing/RingtoneCache.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace krl::audio;
using krl::engine::digestOf;
namespace fs = std::filesystem;

namespace {

class Cache : public testing::Test {
protected:
    Ringtone someRingtone() const {
        Ringtone ringtone;
        ringtone.prepared.startSeconds = 62.5;
        ringtone.prepared.loudness = -14.02;
        ringtone.bytes = std::string("\0\n:bytes\n", 9);
        return ringtone;
    }

    fs::path onlyFile() const {
        EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()),
                  1);
        return fs::directory_iterator(folder_.path())->path();
    }

    virtualphone::testing::TemporaryFolder folder_;
    RingtoneCache cache_{folder_.path()};
};

} // namespace

TEST_F(Cache, WhatWasKeptIsFoundAsItWas) {
    EXPECT_FALSE(cache_.find(digestOf("song"), {}));
    cache_.keep(digestOf("song"), {}, someRingtone());
    const auto found = cache_.find(digestOf("song"), {});
    ASSERT_TRUE(found);
    EXPECT_EQ(found->bytes, someRingtone().bytes);
    EXPECT_EQ(found->prepared.startSeconds, 62.5);
    EXPECT_EQ(found->prepared.loudness, -14.02);
}

TEST_F(Cache, AnotherSongOrWishIsAnotherRingtone) {
    cache_.keep(digestOf("song"), {}, someRingtone());
    Wish other;
    other.lengthSeconds = 29;
    EXPECT_FALSE(cache_.find(digestOf("song"), other));
    Wish titled;
    titled.title = "Title";
    EXPECT_FALSE(cache_.find(digestOf("song"), titled));
    EXPECT_FALSE(cache_.find(digestOf("another song"), {}));
}

TEST_F(Cache, WhatIsDamagedIsNotFoundAndIsKeptAnew) {
    cache_.keep(digestOf("song"), {}, someRingtone());
    const fs::path file = onlyFile();
    fs::resize_file(file, fs::file_size(file) - 1);
    EXPECT_FALSE(cache_.find(digestOf("song"), {}));
    fs::resize_file(file, 10);
    EXPECT_FALSE(cache_.find(digestOf("song"), {}));
    fs::resize_file(file, 0);
    EXPECT_FALSE(cache_.find(digestOf("song"), {}));
    cache_.keep(digestOf("song"), {}, someRingtone());
    EXPECT_TRUE(cache_.find(digestOf("song"), {}));
}

TEST_F(Cache, OneThatCannotBeWrittenKeepsNothing) {
    std::ofstream(folder_.path() / "file") << "x";
    const RingtoneCache cache(folder_.path() / "file" / "cache");
    cache.keep(digestOf("song"), {}, someRingtone());
    EXPECT_FALSE(cache.find(digestOf("song"), {}));
    const RingtoneCache none{fs::path()};
    none.keep(digestOf("song"), {}, someRingtone());
    EXPECT_FALSE(none.find(digestOf("song"), {}));
}

TEST_F(Cache, TheLongestUnusedAreForgotten) {
    using Time = fs::file_time_type;
    cache_.keep(digestOf("old"), {}, someRingtone());
    fs::last_write_time(onlyFile(), Time::clock::now() - std::chrono::hours(48));
    for (int i = 0; i < 399; ++i) {
        const fs::path file = folder_.path() / std::to_string(i);
        std::ofstream(file) << "x";
        fs::last_write_time(file, Time::clock::now() - std::chrono::hours(24));
    }
    EXPECT_TRUE(cache_.find(digestOf("old"), {})) << "which makes it the newest";
    cache_.keep(digestOf("new"), {}, someRingtone());
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), fs::directory_iterator()), 400);
    EXPECT_TRUE(cache_.find(digestOf("old"), {}));
    EXPECT_TRUE(cache_.find(digestOf("new"), {}));
}
