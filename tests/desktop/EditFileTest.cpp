#include "desktop/bridge/EditFile.h"

#include "engine/errors/Failure.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

namespace krl::desktop {
namespace {

namespace fs = std::filesystem;

class EditFiles : public ::testing::Test {
protected:
    const virtualphone::testing::TemporaryFolder folder;
    const fs::path file = editFile(folder.path(), "0123");

    void put(const std::string& text) const {
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }

    std::string text() const {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

Edits::Song cutSong() {
    return {"/songs/c.flac", "",
            audio::Wish{.startSeconds = 12.34,
                        .lengthSeconds = 40.1 - 0.1,
                        .fadeInSeconds = 0.5,
                        .fadeOutSeconds = 10,
                        .level = false}};
}

Edits::Song sentSong() {
    return {.path = "/songs/d.m4r", .name = "New", .sent = Edits::Sent{"no \xff text", 1ULL << 40}};
}

Edits someEdits() {
    return {.removed = {"Harp", "no \xff text"},
            .renamed = {{"Horn", "Hupe"}},
            .songs = {{"/songs/a\xff.mp3", "Given"},
                      {"/songs/b.mp3", ""},
                      {.path = "/songs/d.flac",
                       .usual = audio::Wish{.lengthSeconds = 12, .level = false}},
                      cutSong(),
                      sentSong()}};
}

} // namespace

TEST_F(EditFiles, BringBackWhatWasKept) {
    EXPECT_TRUE(readEdits(file).isEmpty());
    writeEdits(file, someEdits());
    EXPECT_EQ(readEdits(file), someEdits());
}

TEST_F(EditFiles, OfBeforeCutsWereKeptAreRead) {
    put(R"({"version":1,"removed":[],"renamed":[],"songs":[{"path":"/a","name":"b"}]})");
    const Edits edits = readEdits(file);
    ASSERT_THAT(edits.songs, testing::SizeIs(1));
    EXPECT_EQ(edits.songs.front(), (Edits::Song{"/a", "b"}));
}

TEST_F(EditFiles, AreGoneWithTheLastEdit) {
    writeEdits(file, someEdits());
    writeEdits(file, {});
    EXPECT_TRUE(fs::is_empty(file.parent_path()));
    EXPECT_NO_THROW(writeEdits(file, {}));
}

TEST_F(EditFiles, AreOneOfEachPhoneWithinTheFolderWhateverItsName) {
    EXPECT_NE(editFile(folder.path(), "01"), editFile(folder.path(), "02"));
    EXPECT_EQ(editFile(folder.path(), "../../x").lexically_normal().parent_path(),
              folder.path() / "window");
}

TEST_F(EditFiles, OfWhichAPartIsMissingAreNotBelieved) {
    writeEdits(file, someEdits());
    const std::string whole = text();
    for (size_t length = 0; length + 2 < whole.size(); ++length) {
        put(whole.substr(0, length));
        EXPECT_THROW(readEdits(file), engine::Failure) << length;
    }
}

TEST_F(EditFiles, ThatAreMadeToHarmAreNotBelieved) {
    const std::string begin = R"({"version":1,"removed":[],"renamed":[],"songs":)";
    for (const std::string& text :
         {std::string(1000000, '['), std::string("{}"), std::string("null"),
          std::string(R"({"version":2,"removed":[],"renamed":[],"songs":[]})"), begin + "{}}",
          begin + "7}", begin + "[7]}", begin + R"([{"path":"relative","name":""}]})",
          begin + R"([{"path":"/a\u0000b","name":""}]})", begin + R"([{"path":"/a"}]})",
          begin + R"([{"path":["/a"],"name":""}]})",
          begin + R"([{"path":{"hex":"2"},"name":""}]})"}) {
        put(text);
        EXPECT_THROW(readEdits(file), engine::Failure) << text.substr(0, 100);
    }
}

TEST_F(EditFiles, WithACutThatCannotBeAreNotBelieved) {
    const auto withCut = [this](const std::string& cut) {
        put(R"({"version":1,"removed":[],"renamed":[],"songs":[{"path":"/a","name":"","cut":)" +
            cut + "}]}");
        return readEdits(file).songs.front().cut;
    };
    const std::string end = R"("fadeIn":0,"fadeOut":1,"level":true})";
    EXPECT_EQ(withCut(R"({"start":2,"length":3,)" + end)->lengthSeconds, 3);
    for (const std::string& cut :
         {std::string("null"), std::string("[]"), std::string("{}"), "{" + end,
          R"({"start":-1,"length":3,)" + end, R"({"start":1e300,"length":3,)" + end,
          R"({"start":1e999,"length":3,)" + end, R"({"start":"2","length":3,)" + end,
          R"({"start":2,"length":0,)" + end, R"({"start":2,"length":-3,)" + end,
          R"({"start":2,"length":42,)" + end, R"({"start":null,"length":3,)" + end,
          std::string(R"({"start":2,"length":3,"fadeIn":-1,"fadeOut":1,"level":true})"),
          std::string(R"({"start":2,"length":3,"fadeIn":0,"fadeOut":1000,"level":true})"),
          std::string(R"({"start":2,"length":3,"fadeIn":0,"fadeOut":1,"level":1})")}) {
        EXPECT_THROW(withCut(cut), engine::Failure) << cut;
    }
}

TEST_F(EditFiles, WithSomethingSentThatCannotBeAreNotBelieved) {
    const auto withSent = [this](const std::string& sent) {
        put(R"({"version":1,"removed":[],"renamed":[],"songs":[{"path":"/a","name":"","sent":)" +
            sent + "}]}");
        return readEdits(file).songs.front().sent;
    };
    EXPECT_EQ(withSent(R"({"name":"Harp","size":7})"), (Edits::Sent{"Harp", 7}));
    for (const char* const sent :
         {"null", "[]", "{}", R"("Harp")", R"({"name":"Harp"})", R"({"name":7,"size":7})",
          R"({"name":"Harp","size":-7})", R"({"name":"Harp","size":7.5})",
          R"({"name":"Harp","size":1e30})", R"({"name":"Harp","size":"7"})"}) {
        EXPECT_THROW(withSent(sent), engine::Failure) << sent;
    }
}

TEST_F(EditFiles, LargerThanAnyThatAPersonMakesAreNotRead) {
    const std::string edits = R"({"version":1,"removed":[],"renamed":[],"songs":[]})";
    put(edits + std::string(1000, ' '));
    EXPECT_NO_THROW(readEdits(file));
    put(edits + std::string(size_t{16} * 1024 * 1024, ' '));
    EXPECT_THROW(readEdits(file), engine::Failure);
}

TEST_F(EditFiles, WithAUsualCutThatCannotBeAreNotBelieved) {
    put(R"({"version":1,"removed":[],"renamed":[],"songs":[{"path":"/a","name":"","usual":)"
        R"({"start":0,"length":42,"fadeIn":0,"fadeOut":1,"level":true}}]})");
    EXPECT_THROW(readEdits(file), engine::Failure);
}

TEST_F(EditFiles, ThatAreNoFilesAreNotWaitedFor) {
    fs::create_directories(file);
    EXPECT_THROW(readEdits(file), engine::Failure);
}

} // namespace krl::desktop
