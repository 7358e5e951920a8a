// Ringtones fetched from the phone as files.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <csignal>

namespace vesk::testing {
namespace {

namespace fs = std::filesystem;

class Get : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
        putRingtones({{"KDAQ.m4r", "Marimba", "1"}, {"QJHE.MP3", "Harp/Lyre", "2"}});
    }

    std::string folder() const { return (temporaryFolder() / "fetched").string(); }

    VeskResult get(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), "get");
        arguments.insert(arguments.end(), {"-o", folder()});
        return vesk(arguments);
    }

    std::map<std::string, std::string> fetched() const {
        std::map<std::string, std::string> files;
        if (fs::exists(folder())) {
            for (const auto& entry : fs::directory_iterator(folder())) {
                std::ifstream file(entry.path(), std::ios::binary);
                files[entry.path().filename().string()] = {std::istreambuf_iterator<char>(file),
                                                           std::istreambuf_iterator<char>()};
            }
        }
        return files;
    }

    void here(const std::string& name, const std::string& contents) const {
        fs::create_directories(folder());
        std::ofstream(folder() + "/" + name, std::ios::binary) << contents;
    }

    /// A fault at the n-th request of this name after those by which the ringtones are found.
    void failAt(const std::string& request, size_t n, const std::string& what) {
        log().clear();
        vesk({"list"});
        for (const virtualphone::LogEntry& entry : log().entries()) {
            n += entry.service == "afc" && entry.request == request ? 1U : 0U;
        }
        phone().faults().add(
            virtualphone::parseFault("afc/" + request + "#" + std::to_string(n) + "=" + what));
    }

    using Files = std::map<std::string, std::string>;
};

} // namespace

TEST_F(Get, AllAreFilesNamedAfterTheirRingtones) {
    const auto before = everything();
    log().clear();
    const VeskResult result = get({"--all"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_EQ(fetched(), (Files{{"Marimba.m4r", "sound of Marimba"},
                                {"Harp_Lyre.mp3", "sound of Harp/Lyre"}}));
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("Marimba.m4r\": 16 B"), HasSubstr("2 ringtones fetched")));
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(changesInLog(), IsEmpty());
}

TEST_F(Get, TheNamedOnesAloneIntoTheWorkingFolder) {
    fs::create_directories(folder());
    const fs::path old = fs::current_path();
    fs::current_path(folder());
    const VeskResult result = vesk({"get", "Marimba", "Marimba"});
    fs::current_path(old);
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_EQ(result.out, "\"Marimba.m4r\": 16 B\n");
    EXPECT_EQ(fetched(), (Files{{"Marimba.m4r", "sound of Marimba"}}));
}

TEST_F(Get, SaysInJsonWhatBecameOfEach) {
    here("Marimba.m4r", "sound of Marimba");
    const VeskResult result = get({"--all", "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_EQ(result.json().at("folder"), folder());
    EXPECT_EQ(result.json().at("ringtones"),
              (nlohmann::json{{{"name", "Harp/Lyre"},
                               {"file", "QJHE.MP3"},
                               {"output", folder() + "/Harp_Lyre.mp3"},
                               {"result", "fetched"},
                               {"bytes", 18}},
                              {{"name", "Marimba"},
                               {"file", "KDAQ.m4r"},
                               {"output", folder() + "/Marimba.m4r"},
                               {"result", "already-there"},
                               {"bytes", 16}}}));
}

TEST_F(Get, NamesAndAllExcludeEachOtherAndOneIsNeeded) {
    for (const auto& arguments :
         std::vector<std::vector<std::string>>{{"get"}, {"get", "--all", "Marimba"}}) {
        const VeskResult result = vesk(arguments);
        EXPECT_THAT(result, ExitsWith(ExitCode::Usage));
        EXPECT_THAT(result.err, HasSubstr("--all"));
    }
}

TEST_F(Get, ANameThatIsNotThereIsSaidBeforeAnythingIsFetched) {
    const VeskResult result = get({"Marimba", "Harp/Lyra"});
    EXPECT_THAT(result, ExitsWith(ExitCode::NameNotFound));
    EXPECT_THAT(result.err, HasSubstr("did you mean \"Harp/Lyre\""));
    EXPECT_THAT(fetched(), IsEmpty());
}

TEST_F(Get, ANameIsTheSameWithTheOthersAndWithout) {
    putRingtones({{"KDAQ.m4r", "a:b", "1"},
                  {"QJHE.m4r", "a_b", "2"},
                  {"BQJH.m4r", "A_B", "3"},
                  {"AAAA.m4r", "..", "4"},
                  {"AAAB.m4r", "CON", "5"}});
    const Files all{{"A_B.m4r", "sound of A_B"},
                    {"a_b (2).m4r", "sound of a_b"},
                    {"a_b (3).m4r", "sound of a:b"},
                    {"_.m4r", "sound of .."},
                    {"_CON.m4r", "sound of CON"}};
    EXPECT_THAT(get({"a:b"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(fetched(), (Files{{"a_b (3).m4r", "sound of a:b"}}));
    EXPECT_THAT(get({"--all"}).out, HasSubstr("4 ringtones fetched, 1 there already"));
    EXPECT_EQ(fetched(), all);
}

TEST_F(Get, NothingIsWrittenOverUnlessForced) {
    here("Marimba.m4r", "something else..");
    const VeskResult refused = get({"--all"});
    EXPECT_THAT(refused, ExitsWith(ExitCode::NameTaken));
    EXPECT_THAT(refused.err, AllOf(HasSubstr("Marimba.m4r"), HasSubstr("--force")));
    EXPECT_THAT(refused.out, HasSubstr("1 ringtone fetched, 1 not"));
    EXPECT_EQ(fetched(), (Files{{"Marimba.m4r", "something else.."},
                                {"Harp_Lyre.mp3", "sound of Harp/Lyre"}}));
    here("Marimba.m4r", "of another length");
    EXPECT_THAT(get({"--all"}), ExitsWith(ExitCode::NameTaken));
    EXPECT_THAT(get({"--all", "--force"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(fetched().at("Marimba.m4r"), "sound of Marimba");
}

TEST_F(Get, WhatIsNoFolderIsNotTakenForOne) {
    const std::string file = local("file");
    const VeskResult result = vesk({"get", "--all", "-o", file});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnreadableFile));
    EXPECT_THAT(result.err, HasSubstr("is no folder"));
}

TEST_F(Get, OneBadRingtoneIsItsOwnErrorAndTheOthersAreFetched) {
    putRingtones({{"KDAQ.m4r", "Bad", "1"}, {"QJHE.m4r", "Empty", "2"}, {"BQJH.m4r", "Good", "3"}});
    put(std::string(kFolder) + "/QJHE.m4r", "");
    failAt("Open", 1, "status:10");
    const VeskResult result = get({"--all", "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::CannotOpen)) << "that of the first failure";
    EXPECT_EQ(fetched(), (Files{{"Good.m4r", "sound of Good"}}));
    const nlohmann::json ringtones = result.json().at("ringtones");
    EXPECT_EQ(ringtones.at(0).at("error").at("name"), "cannot-open");
    EXPECT_EQ(ringtones.at(1).at("error").at("name"), "empty-file");
    EXPECT_EQ(ringtones.at(2).at("result"), "fetched");
    EXPECT_FALSE(result.json().contains("error"));
}

TEST_F(Get, APhoneThatIsPulledOutLeavesNoHalfFileAndSaysWhatIsDone) {
    putRingtones({{"KDAQ.m4r", "A", "1"}, {"QJHE.m4r", "B", "2"}, {"BQJH.m4r", "C", "3"}});
    put(std::string(kFolder) + "/QJHE.m4r", std::string(3U << 20U, 'x'));
    // In the second: the first has a mebibyte asked for, in 16 pieces, and the second three.
    failAt("Read", 30, "unplug");
    const VeskResult result = get({"--all", "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::PhoneGone));
    EXPECT_THAT(result.err, HasSubstr("was pulled out"));
    EXPECT_EQ(fetched(), (Files{{"A.m4r", "sound of A"}}));
    EXPECT_EQ(result.json().at("ringtones").size(), 1U);
    EXPECT_EQ(result.json().at("error").at("name"), "phone-gone");
    replug();
    EXPECT_THAT(get({"--all"}).out, HasSubstr("2 ringtones fetched, 1 there already"));
}

TEST_F(Get, CtrlCLeavesNoHalfFile) {
    putRingtones({{"KDAQ.m4r", "A", "1"}, {"QJHE.m4r", "B", "2"}});
    // Each piece of the second takes its time: it is not over before the signal comes.
    put(std::string(kFolder) + "/QJHE.m4r", std::string(48U << 20U, 'x'));
    phone().faults().add(virtualphone::parseFault("afc/Read#30+=delay:50"));
    VeskProcess process({"get", "--all", "-o", folder()});
    process.waitForText("A.m4r");
    process.signal(SIGINT);
    const VeskResult result = process.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Cancelled));
    EXPECT_THAT(result.err, AllOf(HasSubstr("cancelled"), Not(HasSubstr("sync"))));
    EXPECT_THAT(result.out, HasSubstr("1 ringtone fetched, 1 not"));
    EXPECT_EQ(fetched(), (Files{{"A.m4r", "sound of A"}}));
}

TEST_F(Get, APhoneWithoutRingtonesIsNoFailure) {
    putRingtones({});
    const VeskResult result = get({"--all"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("has no ringtones"));
}

} // namespace vesk::testing
