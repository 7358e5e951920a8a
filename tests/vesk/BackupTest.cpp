// Backups of a phone's ringtones and what comes of them.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

using testing::IsSupersetOf;

namespace vesk::testing {
namespace {

namespace fs = std::filesystem;

class Backups : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
        putRingtones({{"KDAQ.m4r", "Marimba", "1"}, {"QJHE.m4r", "Harp/Lyre", "2"}});
        put(std::string(kFolder) + "/" + kBrokenName, "no catalogue's");
        put(std::string(kFolder) + "/EMPTY.m4r", "");
    }

    std::string backup() const { return (temporaryFolder() / "backup").string(); }

    std::string document() const { return backup() + "/krlvesk-backup.json"; }

    /// Everything but the file that every sync locks.
    std::map<std::string, std::string> everything() const {
        auto all = VeskTest::everything();
        all.erase(onDisk("/com.apple.itunes.lock_sync").string());
        return all;
    }

    void wipe() {
        fs::remove_all(onDisk("/iTunes_Control"));
        fs::create_directories(onDisk("/iTunes_Control"));
    }

    std::set<std::string> backupNames() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(backup())) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    void rewriteDocument(const std::function<void(nlohmann::json&)>& edit) {
        nlohmann::json json = nlohmann::json::parse(std::ifstream(document()));
        edit(json);
        std::ofstream(document()) << json.dump();
    }

    static constexpr char kBrokenName[] = "\xff\x01.m4r";
};

} // namespace

TEST_F(Backups, AreFoldersThatPeopleCanRead) {
    const auto before = everything();
    const VeskResult result = vesk({"backup", backup()});
    ASSERT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, HasSubstr("4 files"));
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(backupNames(), UnorderedElementsAre("krlvesk-backup.json", "Marimba.m4r",
                                                    "Harp_Lyre.m4r", "\xEF\xBF\xBD_.m4r"));
    EXPECT_EQ(fs::file_size(backup() + "/Marimba.m4r"), std::string("sound of Marimba").size());
}

TEST_F(Backups, HaveNamesThatEveryFileSystemTellsApart) {
    putRingtones({{"KDAQ.m4r", "harp", "1"}, {"QJHE.m4r", "HARP", "2"}, {"BQJH.m4r", "con", "3"}});
    ASSERT_THAT(vesk({"backup", backup()}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(backupNames(), IsSupersetOf({"harp.m4r", "HARP (2).m4r", "_con.m4r"}));
}

TEST_F(Backups, BringAWipedPhoneBackByteForByte) {
    const auto before = everything();
    ASSERT_THAT(vesk({"backup", backup()}), ExitsWith(ExitCode::Success));
    wipe();
    const VeskResult result = vesk({"restore", backup()});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, AllOf(HasSubstr("2 added"), HasSubstr("Marimba")));
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(vesk({"restore", backup()}).out, HasSubstr("nothing to do"));
}

TEST_F(Backups, AreNotPutOverWhatOthersDid) {
    ASSERT_THAT(vesk({"backup", backup()}), ExitsWith(ExitCode::Success));
    const auto before = everything();
    putRingtones({{"ABCD.m4r", "Theirs", "3"}});
    const auto theirs = everything();
    const VeskResult refused = vesk({"restore", backup()});
    EXPECT_THAT(refused, ExitsWith(ExitCode::ChangedByOthers));
    EXPECT_THAT(refused.err, AllOf(HasSubstr("others have changed"), HasSubstr("--force")));
    EXPECT_EQ(everything(), theirs);
    EXPECT_THAT(vesk({"restore", backup(), "--force"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), before);
    // What was there is to be had again.
    EXPECT_THAT(vesk({"undo"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(everything(), theirs);
}

TEST_F(Backups, AreShownWhatTheyWouldDo) {
    ASSERT_THAT(vesk({"backup", backup()}), ExitsWith(ExitCode::Success));
    wipe();
    const auto before = everything();
    log().clear();
    const VeskResult result = vesk({"restore", backup(), "--dry-run"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out,
                AllOf(HasSubstr("upload"), HasSubstr("write-catalogue"), HasSubstr("Dry run")));
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(changesInLog(), IsEmpty());
}

TEST_F(Backups, NeedAFolderOfTheirOwn) {
    const VeskResult result = vesk({"backup", fs::path(local("a.m4r")).parent_path().string()});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnreadableFile));
    EXPECT_THAT(result.err, HasSubstr("empty folder"));
}

TEST_F(Backups, ThatAreDamagedAreNotRestored) {
    ASSERT_THAT(vesk({"backup", backup()}), ExitsWith(ExitCode::Success));
    wipe();
    const auto before = everything();
    std::ofstream(backup() + "/Marimba.m4r") << "another sound";
    const VeskResult changed = vesk({"restore", backup()});
    EXPECT_THAT(changed, ExitsWith(ExitCode::NothingKept));
    EXPECT_THAT(changed.err, HasSubstr("Marimba.m4r"));
    fs::remove(backup() + "/Marimba.m4r");
    EXPECT_THAT(vesk({"restore", backup()}), ExitsWith(ExitCode::UnreadableFile));
    fs::remove(document());
    EXPECT_THAT(vesk({"restore", backup()}), ExitsWith(ExitCode::UnreadableFile));
    EXPECT_EQ(everything(), before);
}

TEST_F(Backups, WithNamesThatLeadElsewhereAreNotRestored) {
    ASSERT_THAT(vesk({"backup", backup()}), ExitsWith(ExitCode::Success));
    wipe();
    const auto before = everything();
    rewriteDocument([](auto& json) { json["files"][2]["copy"] = "../local"; });
    EXPECT_THAT(vesk({"restore", backup()}), ExitsWith(ExitCode::NothingKept));
    rewriteDocument([](auto& json) {
        json["files"][2]["copy"] = "Marimba.m4r";
        json["files"][0]["name"] = "../../DCIM/IMG_0001.JPG";
    });
    EXPECT_THAT(vesk({"restore", backup()}), ExitsWith(ExitCode::NothingKept));
    EXPECT_EQ(everything(), before);
}

TEST_F(Backups, BrokenOffAtAnyChangeAreTakenUpByTheNextRestore) {
    const auto before = everything();
    ASSERT_THAT(vesk({"backup", backup()}), ExitsWith(ExitCode::Success));
    for (const std::string request : {"MakeDirectory", "Write", "Rename"}) {
        bool metAFault = true;
        for (int n = 1; metAFault; ++n) {
            SCOPED_TRACE(request + " " + std::to_string(n));
            ASSERT_LT(n, 100) << "it never ended";
            wipe();
            log().clear();
            const std::string fault = "afc/" + request + "#" + std::to_string(n);
            phone().faults().add(virtualphone::parseFault(fault + "=drop-unanswered"));
            const VeskResult broken = vesk({"restore", backup()});
            phone().faults().clear();
            metAFault =
                !log().entries([](const auto& entry) { return !entry.fault.empty(); }).empty();
            EXPECT_EQ(broken.exitCode != 0, metAFault);
            EXPECT_THAT(vesk({"restore", backup()}), ExitsWith(ExitCode::Success));
            ASSERT_EQ(everything(), before);
        }
    }
}

TEST_F(Backups, AreRestoredUnderTheSyncLock) {
    ASSERT_THAT(vesk({"backup", backup()}), ExitsWith(ExitCode::Success));
    wipe();
    log().clear();
    ASSERT_THAT(vesk({"restore", backup()}), ExitsWith(ExitCode::Success));
    constexpr uint64_t kExclusive = 6;
    constexpr uint64_t kUnlock = 12;
    std::vector<std::string> steps;
    for (const auto& entry : log().entries()) {
        const bool changes = entry.request == "Write" || entry.request == "Rename";
        if (entry.request == "Lock") {
            steps.emplace_back(entry.mode == kExclusive ? "lock"
                               : entry.mode == kUnlock  ? "unlock"
                                                        : "another lock");
        } else if (changes && (steps.empty() || steps.back() != "change")) {
            steps.emplace_back("change");
        }
    }
    EXPECT_THAT(steps, ::testing::ElementsAre("lock", "change", "unlock"));
}

} // namespace vesk::testing
