// A catalogue that is unreadable, empty or gone is made anew from what is known and from what lies
// there; on each kind of firmware, read back with libplist.
#include "tests/vesk/VeskTest.h"

#include "torture/PhoneContents.h"

#include <gmock/gmock.h>

using testing::Each;

namespace vesk::testing {
namespace {

namespace fs = std::filesystem;

using Sounds = std::map<std::string, std::string>;

const Sounds kSounds{{"Bells", "the bells"}, {"Harp", "the harp"}, {"Tick & Tock", "the tick"}};

/// A file with a title in its tags, as players read it.
std::string titled(const std::string& title, const std::string& sound) {
    const auto bytes = [](std::initializer_list<int> values) {
        std::string result;
        for (const int value : values) {
            result += static_cast<char>(value);
        }
        return result;
    };
    const auto length = static_cast<int>(title.size()) + 1;
    return "ID3" + bytes({3, 0, 0, 0, 0, 0, length + 10}) + "TIT2" +
           bytes({0, 0, 0, length, 0, 0, 0}) + title + sound;
}

class EachFirmwareRebuilt : public VeskTest, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        options.firmware = GetParam();
        options.name = "My Phone";
        plugIn();
        local("Bells.mp3", "the bells");
        local("Harp.m4r", "the harp");
        local("Tick & Tock.wav", "the tick");
        ASSERT_THAT(vesk({"sync", localFolder()}), ExitsWith(ExitCode::Success));
        whole_ = torture::filesOf(options.root);
        log().clear();
    }

    /// Makes the phone hold exactly these ringtones.
    void putAll(const torture::Files& files) {
        fs::remove_all(onDisk("/iTunes_Control"));
        for (const auto& [path, bytes] : files) {
            put(path, bytes);
        }
    }

    /// What an unreadable or empty catalogue may be; none: it is gone.
    void withEachDamage(const std::function<void()>& test) {
        for (const std::optional<std::string>& damage : std::vector<std::optional<std::string>>{
                 "", "no property list", "<plist><dict/></plist>",
                 "<plist><dict><key>Ringtones</key><dict/></dict></plist>", std::nullopt}) {
            SCOPED_TRACE(damage.value_or("none"));
            putAll(whole_);
            if (damage) {
                put(kCatalogue, *damage);
            } else {
                fs::remove_all(onDisk("/iTunes_Control/iTunes"));
            }
            log().clear();
            test();
        }
    }

    torture::Ringtones ringtones() const {
        return torture::ringtonesOf(torture::filesOf(options.root));
    }

    void expectSound(const Sounds& wanted) const {
        const torture::Ringtones now = ringtones();
        EXPECT_TRUE(now.isReadable);
        EXPECT_EQ(now.sounds, wanted);
        EXPECT_THAT(now.unlisted, IsEmpty());
        if (options.firmware == "1.1.1") {
            EXPECT_THAT(vesk({"check", onDisk(kCatalogue).string()}), ExitsWith(ExitCode::Success));
        }
    }

    /// Everything but the file that every sync locks, and the catalogue's folder, which stays.
    std::map<std::string, std::string> everything() const {
        auto all = VeskTest::everything();
        all.erase(onDisk("/com.apple.itunes.lock_sync").string());
        all.erase(onDisk("/iTunes_Control/iTunes").string());
        return all;
    }

    void forgetAll() const { fs::remove_all(temporaryFolder() / "state"); }

    torture::Files whole_; ///< after the first sync
};

} // namespace

TEST_P(EachFirmwareRebuilt, FromTheSafeItIsWhatItWasAndNoRingtoneIsWritten) {
    const std::string whole = contents(kCatalogue);
    withEachDamage([&] {
        const auto before = everything();
        const VeskResult dry = vesk({"rebuild", "--dry-run", "--json"});
        ASSERT_THAT(dry, ExitsWith(ExitCode::Success));
        EXPECT_EQ(everything(), before);
        log().clear();
        const VeskResult done = vesk({"rebuild", "--json"});
        ASSERT_THAT(done, ExitsWith(ExitCode::Success));
        EXPECT_EQ(contents(kCatalogue), whole);
        EXPECT_EQ(done.json().at("operations"), dry.json().at("operations"));
        const auto changes = changesInLog();
        EXPECT_EQ(changes, changesIn(dry.json().at("operations")));
        EXPECT_THAT(changes, Each(::testing::AnyOf(HasSubstr("krlvesk-"), HasSubstr("folder "))));
        expectSound(kSounds);
        EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
        EXPECT_EQ(everything(), before);
    });
}

TEST_P(EachFirmwareRebuilt, FilesThatWereRenamedAreKnownByWhatTheyHold) {
    std::string harp;
    for (const std::string& name : ringtoneFolder()) {
        harp = contents(std::string(kFolder) + "/" + name) == "the harp" ? name : harp;
    }
    fs::rename(onDisk(std::string(kFolder) + "/" + harp),
               onDisk(std::string(kFolder) + "/RRRR.m4r"));
    put(kCatalogue, "garbage");
    EXPECT_THAT(vesk({"rebuild"}), ExitsWith(ExitCode::Success));
    expectSound(kSounds);
    EXPECT_EQ(contents(std::string(kFolder) + "/RRRR.m4r"), "the harp");
}

TEST_P(EachFirmwareRebuilt, WithoutASafeTitlesAreTakenFromTheTags) {
    for (const std::string& name : ringtoneFolder()) {
        fs::remove(onDisk(std::string(kFolder) + "/" + name));
    }
    const std::string sunrise = titled("Sunrise", "not a sound");
    put(std::string(kFolder) + "/ABCD.mp3", sunrise);
    put(std::string(kFolder) + "/EFGH.mp3", titled("Sunrise", "another"));
    put(std::string(kFolder) + "/Plain.m4r", "no tags");
    put(std::string(kFolder) + "/notes.txt", "no ringtone");
    put(kCatalogue, "garbage");
    forgetAll();
    const auto before = everything();
    const VeskResult result = vesk({"rebuild"});
    ASSERT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.err, AllOf(HasSubstr("\"Sunrise (2)\""), HasSubstr("by its tags"),
                                  HasSubstr("notes.txt")));
    expectSound({{"Sunrise", sunrise},
                 {"Sunrise (2)", titled("Sunrise", "another")},
                 {"Plain", "no tags"}});
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_P(EachFirmwareRebuilt, AFileThatNothingKnowsComesBesideThoseThatAreKnown) {
    put(std::string(kFolder) + "/IPHO.m4r", "from elsewhere");
    put(kCatalogue, "garbage");
    EXPECT_THAT(vesk({"rebuild"}), ExitsWith(ExitCode::Success));
    Sounds wanted = kSounds;
    wanted["IPHO"] = "from elsewhere";
    expectSound(wanted);
}

TEST_P(EachFirmwareRebuilt, FilesThatAReadableCatalogueDoesNotListAreListedAgainToo) {
    put(std::string(kFolder) + "/IPHO.m4r", "from elsewhere");
    const VeskResult hinted = vesk({"add", local("New.m4r", "new"), "--dry-run"});
    EXPECT_THAT(hinted.err, AllOf(HasSubstr("IPHO.m4r"), HasSubstr("--rebuild")));
    ASSERT_THAT(vesk({"add", local("New.m4r", "new"), "--rebuild"}), ExitsWith(ExitCode::Success));
    Sounds wanted = kSounds;
    wanted["IPHO"] = "from elsewhere";
    wanted["New"] = "new";
    expectSound(wanted);
}

TEST_P(EachFirmwareRebuilt, AddRemoveAndSyncDoItOnTheWay) {
    const std::string file = local("New.mp3", "new");
    withEachDamage([&] {
        ASSERT_THAT(vesk({"add", file, "--rebuild"}), ExitsWith(ExitCode::Success));
        Sounds wanted = kSounds;
        wanted["New"] = "new";
        expectSound(wanted);
    });
    withEachDamage([&] {
        ASSERT_THAT(vesk({"remove", "Harp", "--rebuild"}), ExitsWith(ExitCode::Success));
        Sounds wanted = kSounds;
        wanted.erase("Harp");
        expectSound(wanted);
    });
    withEachDamage([&] {
        const VeskResult sync = vesk({"sync", localFolder(), "--rebuild", "--json"});
        ASSERT_THAT(sync, ExitsWith(ExitCode::Success));
        EXPECT_EQ(sync.json().at("uploadBytes"), 3) << "what is there is not sent again";
        Sounds wanted = kSounds;
        wanted["New"] = "new";
        expectSound(wanted);
    });
}

TEST_P(EachFirmwareRebuilt, BrokenOffAnywhereItIsPutRightByTheNextCommand) {
    for (const char* request : {"Rename", "Write"}) {
        bool met = true;
        for (int nth = 1; met; ++nth) {
            SCOPED_TRACE(request + std::string(" ") + std::to_string(nth));
            ASSERT_LT(nth, 200);
            putAll(whole_);
            put(kCatalogue, "garbage");
            log().clear();
            phone().faults().add(virtualphone::parseFault(std::string("afc/") + request + "#" +
                                                          std::to_string(nth) + "+=drop"));
            vesk({"rebuild"});
            met = !log().entries([](const auto& one) { return !one.fault.empty(); }).empty();
            phone().faults().clear();
            ASSERT_THAT(vesk({"rebuild"}), ExitsWith(ExitCode::Success));
            expectSound(kSounds);
        }
    }
}

TEST_P(EachFirmwareRebuilt, WhereNothingIsMissingNothingIsDone) {
    const auto before = everything();
    EXPECT_EQ(vesk({"rebuild", "--json"}).json().at("result"), "nothing-to-do");
    EXPECT_THAT(changesInLog(), IsEmpty());
    EXPECT_EQ(everything(), before);
}

INSTANTIATE_TEST_SUITE_P(Table, EachFirmwareRebuilt, ::testing::Values("1.0.2", "1.1.1", "1.1.4"));

class Rebuild : public VeskTest {
protected:
    void SetUp() override { plugIn(); }
};

TEST_F(Rebuild, NeedsTheSafe) {
    const VeskResult result = vesk({"add", local("a.m4r"), "--rebuild", "--no-backup"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Usage));
    EXPECT_THAT(result.err, HasSubstr("--no-backup"));
}

TEST_F(Rebuild, OfAPhoneWithoutRingtonesMakesAnEmptyCatalogue) {
    put(kCatalogue, "garbage");
    EXPECT_THAT(vesk({"rebuild"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), IsEmpty());
    EXPECT_EQ(vesk({"info", "--json"}).json().at("catalogue"), "readable");
}

TEST_F(Rebuild, WhatOnlyABackupHasSeenIsKnownToo) {
    putRingtones({{"KDAQ.m4r", "Marimba", "1"}, {"QJHE.mp3", "Harp", "2"}});
    ASSERT_THAT(vesk({"backup", (temporaryFolder() / "backup").string()}),
                ExitsWith(ExitCode::Success));
    put(kCatalogue, "garbage");
    EXPECT_THAT(vesk({"rebuild"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), UnorderedElementsAre("Marimba", "Harp"));
}

} // namespace vesk::testing
