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

Edits someEdits() {
    return {.removed = {"Harp", "no \xff text"},
            .renamed = {{"Horn", "Hupe"}},
            .songs = {{"/songs/a\xff.mp3", "Given"}, {"/songs/b.mp3", ""}}};
}

} // namespace

TEST_F(EditFiles, BringBackWhatWasKept) {
    EXPECT_TRUE(readEdits(file).isEmpty());
    writeEdits(file, someEdits());
    EXPECT_EQ(readEdits(file), someEdits());
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

TEST_F(EditFiles, ThatAreNoFilesAreNotWaitedFor) {
    fs::create_directories(file);
    EXPECT_THROW(readEdits(file), engine::Failure);
}

} // namespace krl::desktop
