// Ringtones that a sync would lose are put right with it; on each kind of firmware, read back with
// libplist.
#include "tests/vesk/VeskTest.h"

#include "torture/PhoneContents.h"

#include <gmock/gmock.h>

namespace vesk::testing {
namespace {

using Sounds = std::map<std::string, std::string>;

/// A phone as something has left it, and the ringtones that are on it.
struct Damage {
    const char* name;
    std::vector<const char*> firmwares;
    std::string entries;                      ///< the catalogue's, as XML
    std::map<std::string, std::string> files; ///< in the ringtone folder
    Sounds sounds;                            ///< by the names that they have once put right
};

void PrintTo(const Damage& damage, std::ostream* out) {
    *out << damage.name;
}

std::string entry(const std::string& file, const std::string& name, const std::string& guid,
                  const std::string& more = "<key>TrackID</key><integer>1</integer>") {
    return "<key>" + file + "</key><dict><key>Name</key><string>" + name +
           "</string><key>GUID</key><string>" + guid + "</string>" + more + "</dict>";
}

const std::string kBare;

const std::vector<Damage>& damages() {
    static const std::vector<const char*> all{"1.0.2", "1.1.1", "1.1.4"};
    static const std::vector<const char*> older{"1.0.2", "1.1.1"};
    static const std::vector<Damage> rows{
        {"AnEntryLikeAPlaceholders",
         all,
         entry("KDAQ.m4r", "Bare", "1", kBare) + entry("QJHE.mp3", "Full", "2"),
         {{"KDAQ.m4r", "bare"}, {"QJHE.mp3", "full"}},
         {{"Bare", "bare"}, {"Full", "full"}}},
        {"TwoOfOneName",
         all,
         entry("KDAQ.m4r", "Twin", "1") + entry("QJHE.m4r", "Twin", "2"),
         {{"KDAQ.m4r", "first"}, {"QJHE.m4r", "second"}},
         {{"Twin (2)", "first"}, {"Twin", "second"}}},
        {"AnEntryWithoutAName",
         all,
         "<key>KDAQ.m4r</key><dict><key>GUID</key><string>1</string><key>TrackID</key>"
         "<string>x</string><key>Playlist</key><string>x</string></dict>",
         {{"KDAQ.m4r", "nameless"}},
         {{"KDAQ", "nameless"}}},
        {"AnEntryThatIsDamaged",
         all,
         "<key>KDAQ.mp3</key><string>no dictionary</string>" + entry("QJHE.m4r", "Whole", "2"),
         {{"KDAQ.mp3", "damaged"}, {"QJHE.m4r", "whole"}},
         {{"KDAQ", "damaged"}, {"Whole", "whole"}}},
        {"ALongNameWhosePlaceholderWouldMoveAlone",
         older,
         entry("Long name.mp3", "Long", "1") + entry("KDAQ.m4r", "Short", "2"),
         {{"Long name.mp3", "long"}, {"KDAQ.m4r", "short"}},
         {{"Long", "long"}, {"Short", "short"}}},
        {"TwoOfOneGuid",
         older,
         entry("Longtone1.m4r", "One", "1") + entry("Longtone2.m4r", "Two", "1"),
         {{"Longtone1.m4r", "one"}, {"Longtone2.m4r", "two"}},
         {{"One", "one"}, {"Two", "two"}}},
        {"ARingtoneUnderTheNameOfAPlaceholder",
         older,
         entry("KDAQ.m4r", "Under", "1") + entry("KDAQ.mp3", "Beside", "2"),
         {{"KDAQ.m4r", "under"}, {"KDAQ.mp3", "beside"}},
         {{"Under", "under"}, {"Beside", "beside"}}},
        {"AFileNameThatXmlDoesNotHold",
         all,
         entry("KD\x01Q.m4r", "Odd", "1"),
         {{"KD\x01Q.m4r", "odd"}},
         {{"Odd", "odd"}}},
    };
    return rows;
}

class Repair : public VeskTest {
protected:
    void damage(const Damage& how) {
        std::filesystem::remove_all(onDisk("/iTunes_Control"));
        for (const auto& [file, sound] : how.files) {
            put(std::string(kFolder) + "/" + file, sound);
        }
        put(kCatalogue, "<plist version=\"1.0\"><dict><key>Ringtones</key><dict>" + how.entries +
                            "</dict></dict></plist>");
    }

    torture::Ringtones ringtones() const {
        return torture::ringtonesOf(torture::filesOf(options.root));
    }

    /// Everything but the file that every sync locks.
    std::map<std::string, std::string> everything() const {
        auto all = VeskTest::everything();
        all.erase(onDisk("/com.apple.itunes.lock_sync").string());
        return all;
    }

    void expectSound(const Sounds& wanted) const {
        const torture::Ringtones now = ringtones();
        EXPECT_TRUE(now.isReadable);
        EXPECT_EQ(now.sounds, wanted);
        EXPECT_THAT(now.unlisted, IsEmpty());
    }

    void expectAccepted() const {
        if (options.firmware == "1.1.1") {
            EXPECT_THAT(vesk({"check", onDisk(kCatalogue).string()}), ExitsWith(ExitCode::Success));
        }
    }
};

class EachDamage : public Repair, public ::testing::WithParamInterface<Damage> {
protected:
    void SetUp() override { local("New.mp3", "new"); }

    void onEachFirmware(const std::function<void()>& test) {
        for (const char* firmware : GetParam().firmwares) {
            SCOPED_TRACE(firmware);
            options.firmware = firmware;
            plugIn();
            damage(GetParam());
            test();
            bus().unplug(id());
        }
    }
};

std::string nameOf(const ::testing::TestParamInfo<Damage>& info) {
    return info.param.name;
}

} // namespace

TEST_P(EachDamage, IsPutRightByAnAddThatTheDryRunShows) {
    onEachFirmware([this] {
        const auto before = everything();
        const std::string file = localFolder() + "/New.mp3";
        ASSERT_THAT(vesk({"add", file, "--no-backup"}), ExitsWith(ExitCode::WouldLoseRingtones));
        EXPECT_EQ(everything(), before);

        const VeskResult dry = vesk({"add", file, "--dry-run", "--json"});
        ASSERT_THAT(dry, ExitsWith(ExitCode::Success));
        EXPECT_EQ(everything(), before);
        EXPECT_THAT(dry.json().at("repaired"), Not(IsEmpty()));

        log().clear();
        const VeskResult done = vesk({"add", file, "--json"});
        ASSERT_THAT(done, ExitsWith(ExitCode::Success));
        EXPECT_THAT(done.err, HasSubstr("put right"));
        EXPECT_EQ(done.json().at("operations"), dry.json().at("operations"));
        EXPECT_EQ(changesInLog(), changesIn(dry.json().at("operations")));
        Sounds wanted = GetParam().sounds;
        wanted["New"] = "new";
        expectSound(wanted);
        expectAccepted();

        EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
        EXPECT_EQ(everything(), before);
    });
}

TEST_P(EachDamage, IsNoneAnyMoreForTheNextSync) {
    onEachFirmware([this] {
        ASSERT_THAT(vesk({"add", localFolder() + "/New.mp3"}), ExitsWith(ExitCode::Success));
        const auto after = everything();
        EXPECT_THAT(vesk({"remove", "New", "--no-backup"}), ExitsWith(ExitCode::Success));
        expectSound(GetParam().sounds);
        EXPECT_NE(everything(), after);
        EXPECT_EQ(vesk({"rebuild", "--json"}).json().at("result"), "nothing-to-do");
    });
}

TEST_P(EachDamage, ASyncHoldsExactlyItsFolderThen) {
    onEachFirmware([this] {
        ASSERT_THAT(vesk({"sync", localFolder()}), ExitsWith(ExitCode::Success));
        expectSound({{"New", "new"}});
        expectAccepted();
        EXPECT_EQ(vesk({"sync", localFolder(), "--json"}).json().at("result"), "nothing-to-do");
        EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    });
}

INSTANTIATE_TEST_SUITE_P(Of, EachDamage, ::testing::ValuesIn(damages()), nameOf);

// Each of two ringtones would get the other's file name.
TEST_F(Repair, MovesThatCrossAreNoneAnyMore) {
    options.firmware = "1.1.1";
    plugIn();
    Damage crossing{"Crossing", {}, {}, {}, {}};
    for (const std::string base : {"OHFE", "IIIN", "BQNQ", "BQJH", "FHKM", "GAQK"}) {
        crossing.entries += entry(base + ".mp3", "Tone " + base, "guid of " + base);
        crossing.files[base + ".mp3"] = "sound of " + base;
        crossing.sounds["Tone " + base] = "sound of " + base;
        local("Tone " + base + ".mp3", "sound of " + base);
    }
    damage(crossing);
    const auto before = everything();
    ASSERT_THAT(vesk({"sync", localFolder(), "--no-backup"}),
                ExitsWith(ExitCode::WouldLoseRingtones));
    const VeskResult done = vesk({"sync", localFolder(), "--json"});
    ASSERT_THAT(done, ExitsWith(ExitCode::Success));
    EXPECT_EQ(done.json().at("uploadBytes"), 0);
    expectSound(crossing.sounds);
    expectAccepted();
    EXPECT_EQ(vesk({"sync", localFolder(), "--json"}).json().at("result"), "nothing-to-do");
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_F(Repair, WithForceTheyAreLetGoAndKept) {
    options.firmware = "1.1.1";
    plugIn();
    damage(damages().front());
    const auto before = everything();
    ASSERT_THAT(vesk({"add", local("New.mp3", "new"), "--force"}), ExitsWith(ExitCode::Success));
    expectSound({{"Full", "full"}, {"New", "new"}});
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
}

TEST_F(Repair, WithoutRoomForCopiesHereItIsRefusedAndSaid) {
    plugIn();
    damage(damages().front());
    put(std::string(kFolder) + "/QJHE.mp3", std::string(100'000, 'x'));
    const auto before = everything();
    VeskProcess::Options shell;
    shell.program = "/bin/sh";
    const VeskResult result =
        VeskProcess({"-c", "trap '' XFSZ; ulimit -f 64; exec " + std::string(KRL_VESK) +
                               " add --unchecked " + local("New.mp3", "new")},
                    shell)
            .wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::WouldLoseRingtones));
    EXPECT_THAT(result.err, AllOf(HasSubstr("\"Bare\""), HasSubstr("Make room"),
                                  HasSubstr("Nothing was changed on the phone")));
    EXPECT_EQ(everything(), before);
}

TEST_F(Repair, TooLittleSpaceOnThePhoneIsSaidBeforeAnythingIsWritten) {
    plugIn();
    damage(damages().front());
    const auto before = everything();
    const std::string file = local("New.mp3", std::string(2000, 'n'));
    const auto needed =
        vesk({"add", file, "-n", "--json"}).json().at("spaceNeeded").get<uint64_t>();
    phone().setFreeBytes(needed - 1);
    EXPECT_THAT(vesk({"add", file}), ExitsWith(ExitCode::NoSpace));
    EXPECT_EQ(everything(), before);
    phone().setFreeBytes(needed);
    EXPECT_THAT(vesk({"add", file}), ExitsWith(ExitCode::Success));
}

TEST_F(Repair, BrokenOffAnywhereItIsPutRightByTheNextCommand) {
    options.firmware = "1.1.1";
    plugIn();
    const Damage& how = damages()[4]; // one file moves
    const std::string file = local("New.mp3", "new");
    Sounds wanted = how.sounds;
    wanted["New"] = "new";
    for (const char* request : {"Rename", "Write"}) {
        bool met = true;
        for (int nth = 1; met; ++nth) {
            SCOPED_TRACE(request + std::string(" ") + std::to_string(nth));
            ASSERT_LT(nth, 200);
            damage(how);
            const auto before = everything();
            log().clear();
            phone().faults().add(virtualphone::parseFault(std::string("afc/") + request + "#" +
                                                          std::to_string(nth) + "+=drop"));
            vesk({"add", file});
            met = !log().entries([](const auto& one) { return !one.fault.empty(); }).empty();
            phone().faults().clear();
            // It was finished, or taken back, or is now.
            const VeskResult next = vesk({"add", file});
            ASSERT_TRUE(next.exitCode == static_cast<int>(ExitCode::Success) ||
                        next.exitCode == static_cast<int>(ExitCode::NameTaken))
                << ::testing::PrintToString(next);
            expectSound(wanted);
            EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
            EXPECT_EQ(everything(), before);
        }
    }
}

} // namespace vesk::testing
