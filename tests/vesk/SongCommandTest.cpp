// Songs on their way to a phone: judged, made ringtones, named and found again.
#include "tests/vesk/VeskTest.h"

#include "tests/support/Ffmpeg.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

using testing::Pair;
namespace fs = std::filesystem;

namespace vesk::testing {
namespace {

using Names = std::set<std::string>;

class Songs : public VeskTest {
protected:
    /// vesk, which looks into files.
    static VeskResult judging(const std::vector<std::string>& arguments) {
        return VeskProcess(arguments, {.environment = {}, .program = {}, .judges = true}).wait();
    }

    /// Half a second of sound, or more.
    std::string song(const std::string& name, const std::string& title = {}, int hertz = 440,
                     double seconds = 0.5) const {
        fs::create_directories(fs::path(local(name, "")).parent_path());
        std::vector<std::string> arguments{"-bitexact"};
        if (!title.empty()) {
            arguments.insert(arguments.end(), {"-metadata", "title=" + title});
        }
        const fs::path made = temporaryFolder() / ("made" + fs::path(name).extension().string());
        krl::test::makeSong(made, fmt::format("0.3*sin(2*PI*{}*t)", hertz), seconds, arguments);
        fs::rename(made, local(name, ""));
        return local_(name);
    }

    std::string local_(const std::string& name) const { return localFolder() + "/" + name; }

    void setFirmware(const std::string& version) { options.firmware = version; }

    /// The ringtones' files on this computer, by the ringtones' names.
    std::map<std::string, fs::path> filesByName() const {
        std::map<std::string, fs::path> result;
        const nlohmann::json listed = vesk({"list", "--json"}).json();
        for (const auto& ringtone : listed.at("ringtones")) {
            result[ringtone.at("name")] =
                onDisk(std::string(kFolder) + "/" + ringtone.at("file").get<std::string>());
        }
        return result;
    }

    /// The ringtones' GUIDs by their names.
    static std::map<std::string, std::string> guids() {
        std::map<std::string, std::string> result;
        const nlohmann::json listed = vesk({"list", "--json"}).json();
        for (const auto& ringtone : listed.at("ringtones")) {
            result[ringtone.at("name")] = ringtone.at("guid");
        }
        return result;
    }

    std::map<std::string, std::string> results(const VeskResult& result) const {
        std::map<std::string, std::string> results;
        const nlohmann::json document = result.json();
        for (const auto& song : document.at("songs")) {
            results[fs::path(song.at("file").get<std::string>()).filename()] =
                song.contains("error") ? song.at("error").at("name").get<std::string>()
                                       : song.at("result").get<std::string>();
        }
        return results;
    }
};

class SongsOnFirmware : public Songs, public ::testing::WithParamInterface<const char*> {};

} // namespace

TEST_P(SongsOnFirmware, AFlacBecomesARingtoneThatPlays) {
    setFirmware(GetParam());
    plugIn();
    const VeskResult result = judging({"add", song("song.flac", "Tune", 440, 45)});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("was made a ringtone (early iPhones do not play FLAC)"));
    const auto files = filesByName();
    ASSERT_TRUE(files.contains("Tune")) << result.err;
    EXPECT_EQ(files.at("Tune").extension(), ".m4r");
    const std::string facts = krl::test::probed(files.at("Tune"));
    EXPECT_THAT(facts, AllOf(HasSubstr("codec_name=aac"), HasSubstr("profile=LC"),
                             HasSubstr("sample_rate=44100"), HasSubstr("channels=2"),
                             HasSubstr("TAG:title=Tune")));
    EXPECT_NEAR(krl::test::loudnessOf(files.at("Tune")), -14, 0.5);
}

TEST_P(SongsOnFirmware, WhatPlaysGoesAsItIs) {
    setFirmware(GetParam());
    plugIn();
    const std::string mp3 = song("song.mp3");
    const VeskResult result = judging({"add", mp3, "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    const bool takesMp3 = std::string(GetParam()) != "1.1.4";
    EXPECT_THAT(results(result),
                UnorderedElementsAre(Pair("song.mp3", takesMp3 ? "as-is" : "prepared")));
    const fs::path file = filesByName().at("song");
    EXPECT_EQ(file.extension(), takesMp3 ? ".mp3" : ".m4r");
    EXPECT_EQ(krl::test::heard(file).empty(), false);
}

INSTANTIATE_TEST_SUITE_P(Firmware, SongsOnFirmware,
                         ::testing::Values("1.0.0", "1.0.2", "1.1.1", "1.1.2", "1.1.4"));

TEST_F(Songs, AFolderOfSongsIsStable) {
    plugIn();
    song("a.flac", "Song");
    song("b.ogg", "Song", 550);
    song("c.mp3", "Song", 660);
    song("d.wav", "Cafe\u0301");
    song("e.wav", "Caf\u00E9", 330);
    const VeskResult first = judging({"sync", localFolder(), "--json"});
    EXPECT_THAT(first, ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), (Names{"Song", "Song (2)", "Song (3)", "Caf\u00E9", "Caf\u00E9 (2)"}));
    const auto before = everything();
    fs::remove_all(temporaryFolder() / "cache");
    const VeskResult second = judging({"sync", localFolder(), "--json"});
    EXPECT_EQ(second.json().at("result"), "nothing-to-do") << "also with nothing left of the first";
    EXPECT_THAT(second.err, Not(HasSubstr("was made"))) << "nor is anything made for that";
    EXPECT_EQ(everything(), before);
}

TEST_F(Songs, AnotherContentOfTheSameSizeIsNoticed) {
    plugIn();
    const std::string wav = song("a.wav", {}, 440);
    song("b.flac", {}, 440);
    ASSERT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    const auto before = fs::file_size(wav);
    song("a.wav", {}, 550);
    ASSERT_EQ(fs::file_size(wav), before);
    const VeskResult second = judging({"sync", localFolder(), "--json"});
    EXPECT_THAT(results(second),
                UnorderedElementsAre(Pair("a.wav", "as-is"), Pair("b.flac", "already-there")));
    song("b.flac", {}, 550);
    const VeskResult third = judging({"sync", localFolder(), "--json"});
    EXPECT_THAT(results(third),
                UnorderedElementsAre(Pair("a.wav", "already-there"), Pair("b.flac", "prepared")));
}

TEST_F(Songs, AnotherWishIsAnotherRingtone) {
    plugIn();
    song("a.flac", {}, 440, 3);
    song("b.wav", {}, 440, 3);
    const auto run = [this](const std::vector<std::string>& wishes) {
        std::vector<std::string> arguments{"sync", localFolder(), "--json"};
        arguments.insert(arguments.end(), wishes.begin(), wishes.end());
        return results(judging(arguments));
    };
    EXPECT_THAT(run({}), UnorderedElementsAre(Pair("a.flac", "prepared"), Pair("b.wav", "as-is")));
    EXPECT_THAT(run({"--length", "2"}),
                UnorderedElementsAre(Pair("a.flac", "prepared"), Pair("b.wav", "prepared")))
        << "a wish in words is for every song";
    EXPECT_THAT(run({"--length", "2"}), UnorderedElementsAre(Pair("a.flac", "already-there"),
                                                             Pair("b.wav", "already-there")));
}

TEST_F(Songs, ARingtoneThatIsNotWholeOnThePhoneIsReplaced) {
    plugIn();
    song("a.flac");
    ASSERT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    const fs::path file = filesByName().at("a");
    const auto whole = fs::file_size(file);
    fs::resize_file(file, 100);
    EXPECT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(fs::file_size(filesByName().at("a")), whole);
}

TEST_F(Songs, ARingtoneThatNothingIsKnownOfIsTheSameWhenItIsAsLarge) {
    plugIn();
    const std::string wav = song("a.wav");
    putRingtones({{"AAAA.wav", "a", "guid-a"}});
    fs::copy_file(wav, onDisk(std::string(kFolder) + "/AAAA.wav"),
                  fs::copy_options::overwrite_existing);
    const VeskResult result = judging({"sync", localFolder(), "--json"});
    EXPECT_THAT(results(result), UnorderedElementsAre(Pair("a.wav", "already-there")));
}

TEST_F(Songs, WhatCannotBeUsedIsSaidAndTheRestGoesOn) {
    plugIn();
    song("good.flac");
    local("text.mp3", "no sound");
    local("random.m4r", std::string(5000, '\x7f'));
    local("empty.wav", "");
    std::string cut = krl::test::runOf({"cat", song("cut.flac", {}, 440, 5)});
    local("cut.flac", cut.substr(0, 60));
    fs::create_symlink("/dev/zero", local_("endless.mp3"));
    mkfifo(local_("pipe.mp3").c_str(), 0600);
    const VeskResult result = judging({"sync", localFolder(), "--json"});
    EXPECT_THAT(result, Not(ExitsWith(ExitCode::Success)));
    EXPECT_EQ(listedNames(), Names{"good"});
    for (const char* name :
         {"text.mp3", "random.m4r", "empty.wav", "cut.flac", "endless.mp3", "pipe.mp3"}) {
        EXPECT_THAT(result.err, HasSubstr(name));
    }
    EXPECT_THAT(results(result),
                UnorderedElementsAre(
                    Pair("good.flac", "prepared"), Pair("text.mp3", "unsupported-type"),
                    Pair("random.m4r", "unsupported-type"), Pair("empty.wav", "empty-file"),
                    Pair("cut.flac", "unsupported-type"), Pair("endless.mp3", "unreadable-file"),
                    Pair("pipe.mp3", "unreadable-file")));
}

TEST_F(Songs, NothingIsRemovedForAsLongAsASongCannotBeUsed) {
    plugIn();
    song("a.flac", "Kept");
    song("b.wav", "Old");
    ASSERT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    local("a.flac", "damaged since");
    fs::remove(local_("b.wav"));
    song("c.wav", "New");
    const VeskResult second = judging({"sync", localFolder()});
    EXPECT_THAT(second, ExitsWith(ExitCode::UnsupportedType));
    EXPECT_EQ(listedNames(), (Names{"Kept", "New", "Old"}));
    EXPECT_THAT(second.err, HasSubstr("2 ringtones"));
    fs::remove(local_("a.flac"));
    EXPECT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), Names{"New"});
}

TEST_F(Songs, ASongThatCannotBeMadeKeepsWhatIsThereToo) {
    plugIn();
    song("a.wav", "Song");
    ASSERT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    // Its head says what it is; what follows cannot be decoded.
    const std::string whole = krl::test::runOf({"cat", song("b.flac", "Other", 440, 5)});
    local("b.flac", whole.substr(0, 5000) + std::string(whole.size() - 5000, '\0'));
    fs::remove(local_("a.wav"));
    song("c.flac", "Song", 550);
    const VeskResult result = judging({"sync", localFolder(), "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnreadableFile));
    EXPECT_EQ(listedNames(), Names{"Song"});
    EXPECT_THAT(results(result), UnorderedElementsAre(Pair("b.flac", "unreadable-file"),
                                                      Pair("c.flac", "prepared")));
}

TEST_F(Songs, TheOnlySongThatCannotBeUsedIsTheCommandsFailure) {
    plugIn();
    const VeskResult result = judging({"add", local("text.mp3", "no sound"), "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnsupportedType));
    EXPECT_THAT(result.json().at("error").at("message").get<std::string>(),
                HasSubstr("it is not known as a file with sound"));
    EXPECT_THAT(changesInLog(), IsEmpty());
}

TEST_F(Songs, AnEncryptedSongIsRefusedWithTheReason) {
    plugIn();
    // What an encrypted track says of itself stands in the place of "mp4a".
    song("bought.m4a");
    std::string bytes = krl::test::runOf({"cat", local_("bought.m4a")});
    const size_t box = bytes.find("stsd");
    ASSERT_NE(box, std::string::npos);
    bytes.replace(bytes.find("mp4a", box), 4, "drms");
    const VeskResult result = judging({"add", local("bought.m4p", bytes), song("good.flac")});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnsupportedType));
    EXPECT_THAT(result.err, HasSubstr("it is encrypted"));
    EXPECT_EQ(listedNames(), Names{"good"});
}

TEST_F(Songs, AsTheyAreNoneIsMade) {
    plugIn();
    const std::string wav = song("plays.wav");
    const std::string long_ = song("long.wav", {}, 440, 41);
    const VeskResult result = judging({"add", "--as-is", wav, long_, "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnsupportedType));
    EXPECT_THAT(results(result), UnorderedElementsAre(Pair("plays.wav", "as-is"),
                                                      Pair("long.wav", "unsupported-type")));
    EXPECT_THAT(result.err, HasSubstr("it is 0:41 long"));
}

TEST_F(Songs, AsTheyAreASyncRemovesNoRingtoneThatWasMadeOfOne) {
    plugIn();
    song("a.flac");
    ASSERT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    const VeskResult result = judging({"sync", "--as-is", localFolder()});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnsupportedType));
    EXPECT_EQ(listedNames(), Names{"a"});
}

TEST_F(Songs, AGivenNameIsWrittenInNormalFormC) {
    plugIn();
    EXPECT_THAT(judging({"add", song("a.wav"), "--name", "Cafe\u0301"}),
                ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), Names{"Caf\u00E9"});
}

TEST_F(Songs, AsTheyAreAnMp3IsRefusedByFirmwareThatWantsAnM4r) {
    setFirmware("1.1.4");
    plugIn();
    const VeskResult result = judging({"add", "--as-is", song("song.mp3")});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnsupportedType));
    EXPECT_THAT(result.err, HasSubstr("firmware 1.1.3 and later take m4r files only"));
    EXPECT_THAT(changesInLog(), IsEmpty());
}

TEST_F(Songs, UncheckedEverythingGoesAsItIs) {
    plugIn();
    const std::string file = local("random.m4r", "no sound at all");
    EXPECT_THAT(judging({"add", "--unchecked", file}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(krl::test::runOf({"cat", filesByName().at("random")}), "no sound at all");
}

TEST_F(Songs, NamesComeFromFilesWhenThatIsAsked) {
    plugIn();
    song("first.flac", "Title");
    song("second.wav", "Title", 550);
    EXPECT_THAT(judging({"sync", localFolder(), "--name-from", "file"}),
                ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), (Names{"first", "second"}));
}

TEST_F(Songs, FoldersInTheFolderAreTakenWhenThatIsAsked) {
    plugIn();
    song("top.wav");
    song("album/disc 1/song.flac", "Song");
    song("other/song.flac", "Song", 550);
    EXPECT_THAT(judging({"sync", localFolder(), "-r"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), (Names{"Song", "Song (2)", "top"}));
    EXPECT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), Names{"top"});
}

TEST_F(Songs, OfOneTitleAreAddedWithNumbers) {
    plugIn();
    const VeskResult result = judging({"add", song("a.wav", "Song"), song("b.wav", "Song", 550)});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), (Names{"Song", "Song (2)"}));
    const VeskResult again = judging({"add", song("c.wav", "Song", 660)});
    EXPECT_THAT(again, ExitsWith(ExitCode::NameTaken));
}

TEST_F(Songs, ANameThatIsThereWithOtherAccentsIsTaken) {
    plugIn();
    putRingtones({{"AAAA.m4r", "Cafe\u0301", "guid"}});
    EXPECT_THAT(judging({"add", song("a.wav", "Caf\u00E9")}), ExitsWith(ExitCode::NameTaken));
}

TEST_F(Songs, AreRemovedHoweverAccentsAreWritten) {
    plugIn();
    putRingtones({{"AAAA.m4r", "Cafe\u0301", "guid"}});
    EXPECT_THAT(vesk({"remove", "Caf\u00E9"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), IsEmpty());
}

TEST_F(Songs, AreRenamedAndFetchedHoweverAccentsAreWritten) {
    plugIn();
    putRingtones({{"AAAA.m4r", "Cafe\u0301", "guid"}, {"BBBB.m4r", "B", "other"}});
    EXPECT_THAT(vesk({"rename", "B", "Caf\u00E9"}), ExitsWith(ExitCode::NameTaken));
    EXPECT_THAT(vesk({"get", "Caf\u00E9", "-o", (temporaryFolder() / "out").string()}),
                ExitsWith(ExitCode::Success));
    EXPECT_THAT(vesk({"rename", "Caf\u00E9", "Caf\u00E9"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(listedNames(), (Names{"B", "Caf\u00E9"})) << "in normal form C from then on";
}

TEST_F(Songs, ASongReplacesARingtoneUnderItsNameAndGuid) {
    plugIn();
    putRingtones({{"AAAA.mp3", "Old", "guid"}, {"BBBB.m4r", "B", "other"}});
    const VeskResult result = judging({"replace", "Old", song("a.flac", "Title")});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, HasSubstr("was made a ringtone"));
    EXPECT_EQ(guids(), (std::map<std::string, std::string>{{"B", "other"}, {"Old", "guid"}}));
    EXPECT_EQ(filesByName().at("Old").extension(), ".m4r");
    const VeskResult again = judging({"replace", "Old", local_("a.flac"), "--json"});
    EXPECT_EQ(again.json().at("result"), "nothing-to-do");
    EXPECT_THAT(judging({"replace", "None", local_("a.flac")}), ExitsWith(ExitCode::NameNotFound));
}

TEST_F(Songs, AreAddedInPlaceOfThoseOfTheSameNamesWhenThatIsAsked) {
    plugIn();
    putRingtones({{"AAAA.mp3", "Cafe\u0301", "guid"}, {"BBBB.m4r", "B", "other"}});
    const std::string same = song("same.wav", "Caf\u00E9");
    const std::string fresh = song("fresh.flac", "Fresh");
    EXPECT_THAT(judging({"add", same, fresh}), ExitsWith(ExitCode::NameTaken));
    EXPECT_THAT(judging({"add", "--replace", same, fresh}), ExitsWith(ExitCode::Success));
    auto now = guids();
    now.erase("Fresh");
    EXPECT_EQ(now, (std::map<std::string, std::string>{{"B", "other"}, {"Cafe\u0301", "guid"}}));
    EXPECT_EQ(listedNames(), (Names{"B", "Cafe\u0301", "Fresh"}));
    EXPECT_EQ(filesByName().at("Cafe\u0301").extension(), ".wav");
}

TEST_F(Songs, ADryRunSaysWhatWouldComeAndLeavesNothing) {
    plugIn();
    song("a.flac");
    const VeskResult result = judging({"sync", localFolder(), "--dry-run", "--json"});
    EXPECT_EQ(result.json().at("result"), "dry-run");
    EXPECT_GT(result.json().at("uploadBytes"), 1000);
    EXPECT_THAT(changesInLog(), IsEmpty());
    for (const auto& entry : fs::directory_iterator(temporaryFolder() / "cache" / "krlvesk")) {
        EXPECT_THAT(entry.path().filename().string(), Not(::testing::StartsWith("outgoing")));
    }
}

TEST_F(Songs, WhatAProgramThatWasKilledLeftBehindGoes) {
    plugIn();
    const fs::path left = temporaryFolder() / "cache" / "krlvesk" / "outgoing-left";
    fs::create_directories(left);
    std::ofstream(left / "song.m4r") << "half";
    std::ofstream(left / "lock");
    EXPECT_THAT(judging({"add", song("a.flac")}), ExitsWith(ExitCode::Success));
    EXPECT_FALSE(fs::exists(left));
}

TEST_F(Songs, NoFolderGoesThatIsOfThatNameAndNotOurs) {
    plugIn();
    const fs::path other = temporaryFolder() / "cache" / "krlvesk" / "outgoing-photos";
    const fs::path elsewhere = temporaryFolder() / "tmp" / "outgoing-photos";
    for (const fs::path& folder : {other, elsewhere}) {
        fs::create_directories(folder);
        std::ofstream(folder / "a.jpg") << "picture";
    }
    std::ofstream(elsewhere / "lock");
    EXPECT_THAT(judging({"add", song("a.flac")}), ExitsWith(ExitCode::Success));
    VeskProcess::Options shell;
    shell.program = "/bin/sh";
    const std::string command =
        fmt::format("TMPDIR={} exec env -u HOME -u XDG_CACHE_HOME {} add {}",
                    elsewhere.parent_path().string(), KRL_VESK, song("b.flac"));
    EXPECT_THAT(VeskProcess({"-c", command}, shell).wait(), ExitsWith(ExitCode::Success));
    EXPECT_TRUE(fs::exists(other / "a.jpg"));
    EXPECT_TRUE(fs::exists(elsewhere / "a.jpg"));
}

TEST_F(Songs, AreUndoneLikeAllElse) {
    plugIn();
    song("a.flac");
    ASSERT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    const auto before = everything();
    song("a.flac", {}, 550);
    song("b.ogg");
    ASSERT_THAT(judging({"sync", localFolder()}), ExitsWith(ExitCode::Success));
    ASSERT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_F(Songs, ContradictoryOptionsAreSaid) {
    for (const std::vector<std::string>& given :
         {std::vector<std::string>{"--as-is", "--unchecked"},
          {"--as-is", "--start", "5"},
          {"--unchecked", "--auto"},
          {"--name-from", "nowhere"},
          {"--length", "41"}}) {
        std::vector<std::string> arguments{"add", "x.flac"};
        arguments.insert(arguments.end(), given.begin(), given.end());
        EXPECT_THAT(judging(arguments), ExitsWith(ExitCode::Usage)) << given.front();
    }
}

} // namespace vesk::testing
