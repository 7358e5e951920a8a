// Files that get their names once they are whole.
#include "engine/files/WholeFile.h"

#include "engine/errors/Failure.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <set>
#include <string>

using namespace krl::engine;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

namespace {

class WholeFiles : public testing::Test {
protected:
    const fs::path& folder() const { return folder_.path(); }

    fs::path place(const std::string& name) const { return folder() / name; }

    std::set<std::string> names() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder())) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    static std::string contents(const fs::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    static void write(const fs::path& path, const std::string& bytes,
                      WholeFile::Existing existing) {
        WholeFile file(path);
        file.add(bytes);
        file.finish(existing);
    }

    static std::optional<FailureKind> failureOf(const std::function<void()>& action) {
        try {
            action();
        } catch (const Failure& failure) {
            return failure.kind();
        }
        return std::nullopt;
    }

private:
    virtualphone::testing::TemporaryFolder folder_;
};

} // namespace

TEST_F(WholeFiles, HaveTheirNameOnceTheyAreFinishedAndNotBefore) {
    WholeFile file(place("a.m4r"));
    file.add("one ");
    file.add("two");
    EXPECT_FALSE(fs::exists(place("a.m4r")));
    file.finish(WholeFile::Existing::IsKept);
    EXPECT_EQ(contents(place("a.m4r")), "one two");
    EXPECT_THAT(names(), ElementsAre("a.m4r"));
}

TEST_F(WholeFiles, ThatAreNotFinishedLeaveNothing) {
    {
        WholeFile file(place("a.m4r"));
        file.add("half");
    }
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(WholeFiles, TakeNoNameThatIsTaken) {
    write(place("a.m4r"), "mine", WholeFile::Existing::IsKept);
    EXPECT_EQ(failureOf([&] { write(place("a.m4r"), "other", WholeFile::Existing::IsKept); }),
              FailureKind::NameTaken);
    EXPECT_EQ(contents(place("a.m4r")), "mine");
    EXPECT_THAT(names(), ElementsAre("a.m4r"));
    write(place("a.m4r"), "other", WholeFile::Existing::IsReplaced);
    EXPECT_EQ(contents(place("a.m4r")), "other");
    EXPECT_THAT(names(), ElementsAre("a.m4r"));
}

TEST_F(WholeFiles, AreWrittenBesideEachOtherAndBesideWhatWasLeft) {
    WholeFile one(place("a.m4r"));
    WholeFile other(place("a.m4r"));
    one.add("one");
    other.add("other");
    one.finish(WholeFile::Existing::IsKept);
    other.finish(WholeFile::Existing::IsReplaced);
    EXPECT_EQ(contents(place("a.m4r")), "other");
    EXPECT_THAT(names(), ElementsAre("a.m4r"));
}

TEST_F(WholeFiles, MakeTheirFolderAndSayWhereThereCanBeNone) {
    write(place("new/folder/a.m4r"), "sound", WholeFile::Existing::IsKept);
    EXPECT_EQ(contents(place("new/folder/a.m4r")), "sound");
    write(place("file"), "no folder", WholeFile::Existing::IsKept);
    EXPECT_EQ(failureOf([&] { WholeFile(place("file/a.m4r")); }), FailureKind::Unexpected);
    fs::create_directories(place("b.m4r/inside"));
    EXPECT_EQ(failureOf([&] { write(place("b.m4r"), "sound", WholeFile::Existing::IsReplaced); }),
              FailureKind::Unexpected);
}
