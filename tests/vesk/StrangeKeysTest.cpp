// Entries of a catalogue whose keys point out of the ringtone folder.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

namespace vesk::testing {
namespace {

constexpr char kPhoto[] = "/DCIM/IMG_0001.JPG";
constexpr char kDatabase[] = "/iTunes_Control/iTunes/iTunesDB";

class StrangeKeys : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
        put(kPhoto, "a photo");
        put(kDatabase, "the music");
        put(std::string(kFolder) + "/sub/x.m4r", "deeper");
        putRingtones({{"KDAQ.m4r", "Marimba", "1"}});
        put(kCatalogue, catalogueText({{"../../DCIM/IMG_0001.JPG", "Photo", "2"},
                                       {"KDAQ.m4r", "Marimba", "1"},
                                       {"../iTunes/iTunesDB", "Music", "3"},
                                       {"sub/x.m4r", "Deep", "4"}}));
    }

    void expectFilesAreThere() {
        EXPECT_EQ(contents(kPhoto), "a photo");
        EXPECT_EQ(contents(kDatabase), "the music");
        EXPECT_EQ(contents(std::string(kFolder) + "/sub/x.m4r"), "deeper");
    }

    static void expectSaid(const VeskResult& result) {
        EXPECT_THAT(result.err,
                    AllOf(HasSubstr("the keys of 3 entries are not the name of one file"),
                          HasSubstr("../../DCIM/IMG_0001.JPG"), HasSubstr("../iTunes/iTunesDB"),
                          HasSubstr("sub/x.m4r")));
    }
};

} // namespace

TEST_F(StrangeKeys, AreSaidByListAndCheck) {
    const VeskResult list = vesk({"list"});
    EXPECT_THAT(list, ExitsWith(ExitCode::Success));
    expectSaid(list);
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Marimba"));
    expectSaid(vesk({"check", onDisk(kCatalogue)}));
}

TEST_F(StrangeKeys, AreAProblemForDoctor) {
    const VeskResult doctor = vesk({"doctor"});
    EXPECT_THAT(doctor, ExitsWith(ExitCode::ProblemsFound));
    EXPECT_THAT(doctor.out, AllOf(HasSubstr("3 entries whose key is not the name of one file"),
                                  HasSubstr("../../DCIM/IMG_0001.JPG")));
}

TEST_F(StrangeKeys, FilesStayWhenASyncDropsTheirEntries) {
    local("new.m4r");
    const VeskResult result = vesk({"sync", localFolder()});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success)) << result.err;
    expectSaid(result);
    expectFilesAreThere();
    EXPECT_THAT(listedNames(), UnorderedElementsAre("new"));
    EXPECT_EQ(contents(kCatalogue).find("DCIM"), std::string::npos);
}

TEST_F(StrangeKeys, FilesStayWhenTheirNamesAreToBeRemoved) {
    for (const char* name : {"Photo", "Music", "Deep"}) {
        EXPECT_THAT(vesk({"remove", name}), ExitsWith(ExitCode::NameNotFound));
    }
    const VeskResult result = vesk({"remove", "Marimba"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success)) << result.err;
    expectSaid(result);
    expectFilesAreThere();
}

// XML has no control characters: such a key would be written as another one, and the file be lost.
TEST_F(StrangeKeys, AFileNameWithAControlCharacterIsNotLostUnasked) {
    const std::string file = "KD\x01"
                             "Q.m4r";
    put(std::string(kFolder) + "/" + file, "hard to name");
    put(kCatalogue, catalogueText({{file, "Odd", "1"}}));
    const auto before = everything();
    const VeskResult refused = vesk({"add", local("new.m4r"), "--no-backup"});
    EXPECT_THAT(refused, ExitsWith(ExitCode::WouldLoseRingtones)) << refused.err;
    EXPECT_THAT(refused.err, HasSubstr("\"Odd\""));
    EXPECT_EQ(everything(), before);
    // With a copy in the safe it gets a name that XML has.
    EXPECT_THAT(vesk({"add", local("new.m4r")}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Odd", "new"));
    EXPECT_THAT(vesk({"remove", "Odd"}), ExitsWith(ExitCode::Success));
}

} // namespace vesk::testing
