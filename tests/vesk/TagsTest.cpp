// Titles in the tags of audio files, and files that are made to end whoever reads them.
#include "tests/vesk/VeskTest.h"

#include "tests/support/HostileFiles.h"

#include <gmock/gmock.h>

namespace vesk::testing {
namespace {

class Tags : public VeskTest {
protected:
    void SetUp() override { plugIn(); }
};

} // namespace

TEST_F(Tags, AFileThatCannotBeReadForItsTagsIsNamedAfterTheFileAndSaid) {
    const std::string nested = local("Nested.m4a", krl::test::nestedAtoms(80'000));
    const VeskResult result = vesk({"add", nested, local("Plain.mp3")});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, AllOf(HasSubstr("a file has no readable tags"), HasSubstr(nested),
                                  Not(HasSubstr("Plain.mp3:"))));
    EXPECT_THAT(listedNames(), ElementsAre("Nested", "Plain"));
}

TEST_F(Tags, SeveralSuchFilesInAFolderAreNamed) {
    const std::string first = local("First.m4a", krl::test::nestedAtoms(80'000));
    const std::string second = local("Second.m4r", krl::test::nestedAtoms(80'000));
    const VeskResult result = vesk({"sync", localFolder(), "--quiet"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, AllOf(HasSubstr("2 files have no readable tags"), HasSubstr(first),
                                  HasSubstr(second)));
}

TEST_F(Tags, WithAGivenNameTheyAreNotLookedAt) {
    const std::string nested = local("Nested.m4a", krl::test::nestedAtoms(80'000));
    EXPECT_THAT(vesk({"add", nested, "--name", "Mine", "--quiet"}).err, IsEmpty());
    EXPECT_THAT(listedNames(), ElementsAre("Mine"));
}

} // namespace vesk::testing
