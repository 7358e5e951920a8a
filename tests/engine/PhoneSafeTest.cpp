#include "engine/safe/PhoneSafe.h"

#include "tests/engine/FaultyDisk.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <atomic>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include <sys/stat.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

namespace krl::engine::testing {
namespace {

namespace fs = std::filesystem;

constexpr char kUdid[] = "0123456789abcdef";

class Safe : public ::testing::Test {
protected:
    fs::path folder() const { return temporary_.path() / "state" / "krlvesk"; }

    fs::path phoneFolder() const { return folder() / "phones" / kUdid; }

    static Snapshot snapshotWith(PhoneSafe& safe, const std::string& contents) {
        return {safe.contents().put("catalogue of " + contents),
                true,
                {{"A.m4r", {safe.contents().put(contents), "123"}}}};
    }

    static Journal journalOf(PhoneSafe& safe, uint64_t number) {
        return {.job = {"add", number, safe.keep(snapshotWith(safe, std::to_string(number))),
                        safe.keep(snapshotWith(safe, std::to_string(number + 1)))},
                .number = number,
                .touched = {"A.m4r", "\xff"}};
    }

    /// A job from beginning to end.
    static void doJob(PhoneSafe& safe, uint64_t number) {
        const Journal journal = journalOf(safe, number);
        safe.write(journal);
        History history = safe.history();
        history.add(journal);
        safe.end(history, indexOf(safe.snapshot(journal.job.after)));
        safe.tidy();
    }

    size_t contentCount() const {
        return static_cast<size_t>(
            std::distance(fs::directory_iterator(folder() / "contents"), fs::directory_iterator()));
    }

    void damage(const char* document, const std::string& text) const {
        std::ofstream(phoneFolder() / document, std::ios::binary) << text;
    }

    QuickDisk disk_;

private:
    virtualphone::testing::TemporaryFolder temporary_;
};

/// A history and a journal with a job of that time.
std::string jobOfTime(const std::string& seconds) {
    const std::string job = "{\"what\": \"sync\", \"undone\": false, \"before\": \"" +
                            digestOf("b").hex() + "\", \"after\": \"" + digestOf("a").hex() +
                            "\", \"time\": " + seconds + "}";
    return "{\"version\": 1, \"count\": 1, \"left\": null, \"jobs\": [" + job +
           "], \"job\": " + job +
           ", \"number\": 1, \"touched\": [], \"finish\": false, \"undoes\": false, "
           "\"forced\": false}";
}

} // namespace

TEST_F(Safe, IsForItsOwnerAlone) {
    const PhoneSafe safe(kUdid, folder(), disk_);
    for (const fs::path& path : {folder(), folder() / "contents", phoneFolder()}) {
        struct stat status = {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0700U) << path;
    }
}

TEST_F(Safe, AFolderThatSomebodyElseHasMadeIsOnTheDiskBeforeItIsReliedOn) {
    class NotedDisk : public QuickDisk {
    public:
        int open(const fs::path& path, int flags) override {
            const int descriptor = QuickDisk::open(path, flags);
            open_[descriptor] = path;
            return descriptor;
        }

        int sync(int descriptor) override {
            synced.insert(open_[descriptor]);
            return QuickDisk::sync(descriptor);
        }

        std::set<fs::path> synced;

    private:
        std::map<int, fs::path> open_;
    };

    fs::create_directories(phoneFolder());
    NotedDisk disk;
    const PhoneSafe safe(kUdid, folder(), disk);
    EXPECT_TRUE(disk.synced.contains(folder().parent_path()));
    EXPECT_TRUE(disk.synced.contains(folder()));
    EXPECT_TRUE(disk.synced.contains(phoneFolder().parent_path()));
}

TEST_F(Safe, StandsInTheStateFolder) {
    setenv("XDG_STATE_HOME", "/somewhere", 1);
    EXPECT_EQ(stateFolder(), "/somewhere/krlvesk");
    setenv("XDG_STATE_HOME", "relative", 1);
    setenv("HOME", "/home/me", 1);
    EXPECT_EQ(stateFolder(), "/home/me/.local/state/krlvesk");
    unsetenv("HOME");
    EXPECT_THROW(stateFolder(), Failure);
}

TEST_F(Safe, OfAPhoneWithAnyUdidStaysInItsFolder) {
    for (const std::string udid : {"../../elsewhere", "", "/etc", "a\nb", "\xff"}) {
        const PhoneSafe safe(udid, folder(), disk_);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(folder() / "phones"), fs::directory_iterator()),
              5);
    EXPECT_FALSE(fs::exists(folder() / ".." / "elsewhere"));
}

TEST_F(Safe, GivesSnapshotsBackWithNamesOfAnyBytes) {
    PhoneSafe safe(kUdid, folder(), disk_);
    Snapshot snapshot;
    for (const std::string name :
         {"\xff\xfe", "line\nbreak", "{\"hex\": \"00\"}", "\xE2\x98\x83"}) {
        snapshot.files.insert_or_assign(name, Snapshot::File{safe.contents().put(name), {}});
    }
    const Snapshot read = safe.snapshot(safe.keep(snapshot));
    EXPECT_EQ(read.files, snapshot.files);
    EXPECT_EQ(read.catalogue, std::nullopt);
    EXPECT_FALSE(read.hasFolder);
}

TEST_F(Safe, GivesJournalsBack) {
    PhoneSafe safe(kUdid, folder(), disk_);
    EXPECT_FALSE(safe.journal());
    Journal journal = journalOf(safe, 1);
    journal.mustFinish = true;
    safe.write(journal);
    const auto read = safe.journal();
    ASSERT_TRUE(read);
    EXPECT_EQ(read->job.what, "add");
    EXPECT_EQ(read->job.before, journal.job.before);
    EXPECT_EQ(read->job.after, journal.job.after);
    EXPECT_EQ(read->touched, journal.touched);
    EXPECT_TRUE(read->mustFinish);
    EXPECT_FALSE(read->undoes);
    safe.end(safe.history(), {});
    EXPECT_FALSE(safe.journal());
}

TEST_F(Safe, KnowsNothingOfWhatTheJobOfAJournalMayHaveWritten) {
    PhoneSafe safe(kUdid, folder(), disk_);
    Snapshot before = snapshotWith(safe, "1");
    before.files.insert_or_assign("B.m4r", Snapshot::File{safe.contents().put("b"), {}});
    safe.writeIndex(indexOf(before));
    EXPECT_THAT(safe.index().files, SizeIs(2));
    const Journal journal = journalOf(safe, 1);
    safe.write(journal);
    EXPECT_THAT(safe.index().files, SizeIs(1));
    EXPECT_TRUE(safe.index().files.contains("B.m4r"));
    const Snapshot after = safe.snapshot(journal.job.after);
    EXPECT_THAT(safe.index().catalogues, UnorderedElementsAre(before.catalogue, after.catalogue));
    EXPECT_THAT(safe.index().awaited, ElementsAre(Pair("A.m4r", after.files.at("A.m4r").content)));
}

TEST_F(Safe, KeepsFiveJobsAndWhatTheyNeedAndNoMore) {
    PhoneSafe safe(kUdid, folder(), disk_);
    for (uint64_t number = 1; number <= 5; ++number) {
        doJob(safe, number);
    }
    const size_t full = contentCount();
    for (uint64_t number = 6; number <= 30; ++number) {
        doJob(safe, number);
    }
    const History history = safe.history();
    ASSERT_THAT(history.jobs, SizeIs(5));
    EXPECT_EQ(history.jobs.front().time, 26U);
    EXPECT_EQ(contentCount(), full);
    for (const Job& job : history.jobs) {
        const Snapshot before = safe.snapshot(job.before);
        EXPECT_NO_THROW(safe.contents().bytes(before.files.at("A.m4r").content.digest));
    }
}

TEST_F(Safe, KeepsAsManyJobsAsItWasToldLast) {
    {
        PhoneSafe safe(kUdid, folder(), disk_);
        safe.keepAtMost(7);
        doJob(safe, 1);
        doJob(safe, 2);
    }
    PhoneSafe safe(kUdid, folder(), disk_); // which nobody tells
    const size_t ofTwo = contentCount();
    for (uint64_t number = 3; number <= 9; ++number) {
        doJob(safe, number);
    }
    ASSERT_THAT(safe.history().jobs, SizeIs(7));
    EXPECT_EQ(safe.history().jobs.front().time, 3U);

    safe.keepAtMost(2);
    EXPECT_THAT(safe.history().jobs, SizeIs(7)) << "before the next job";
    doJob(safe, 10);
    ASSERT_THAT(safe.history().jobs, SizeIs(2));
    EXPECT_EQ(safe.history().jobs.front().time, 9U);
    EXPECT_EQ(contentCount(), ofTwo);
}

TEST_F(Safe, KeepsNoNumberOfJobsThatCannotBe) {
    const PhoneSafe safe(kUdid, folder(), disk_);
    const auto withMost = [](const std::string& number) {
        return R"({"version": 1, "most": )" + number + R"(, "count": 0, "left": null, "jobs": []})";
    };
    damage("history.json", withMost("100"));
    EXPECT_EQ(safe.history().most, 100U);
    damage("history.json", R"({"version": 1, "count": 0, "left": null, "jobs": []})");
    EXPECT_EQ(safe.history().most, 5U) << "as it was written before there was a choice";
    for (const char* number : {"0", "101", "-1", "1e9", "null", "\"5\"", "4294967301"}) {
        damage("history.json", withMost(number));
        EXPECT_THROW(safe.history(), Failure) << number;
    }
}

TEST_F(Safe, TakesAJobIntoItsHistoryOnce) {
    PhoneSafe safe(kUdid, folder(), disk_);
    const Journal journal = journalOf(safe, 1);
    History history;
    history.add(journal);
    history.add(journal);
    EXPECT_THAT(history.jobs, SizeIs(1));
}

TEST_F(Safe, AnUndoneJobIsPassedOver) {
    PhoneSafe safe(kUdid, folder(), disk_);
    History history;
    history.add(journalOf(safe, 1));
    history.add(journalOf(safe, 2));
    Journal undo = journalOf(safe, 3);
    undo.undoes = true;
    history.add(undo);
    EXPECT_THAT(history.jobs, SizeIs(2));
    ASSERT_NE(history.last(), nullptr);
    EXPECT_EQ(history.last()->time, 1U);
    undo.number = 4;
    history.add(undo);
    EXPECT_EQ(history.last(), nullptr);
}

TEST_F(Safe, AForcedUndoOverWhatOthersDidIsAJobItself) {
    PhoneSafe safe(kUdid, folder(), disk_);
    History history;
    history.add(journalOf(safe, 1));
    Journal undo = journalOf(safe, 5);
    undo.undoes = true;
    undo.isForced = true;
    history.add(undo);
    ASSERT_THAT(history.jobs, SizeIs(2));
    EXPECT_TRUE(history.jobs[0].isUndone);
    EXPECT_EQ(history.last()->before, undo.job.before);
}

TEST_F(Safe, TakesTimesUpToTheEndOfTheYear9999) {
    PhoneSafe safe(kUdid, folder(), disk_);
    damage("history.json", jobOfTime("253402300799"));
    EXPECT_EQ(safe.history().jobs.at(0).time, 253402300799U);
    damage("journal.json", jobOfTime("253402300799"));
    EXPECT_EQ(safe.journal()->job.time, 253402300799U);
}

TEST_F(Safe, DamagedDocumentsAreFailuresThatNameTheFile) {
    PhoneSafe safe(kUdid, folder(), disk_);
    const std::vector<std::string> texts{
        "",
        "{",
        "[]",
        "null",
        "{\"version\": 1}",
        "{\"version\": 2, \"jobs\": []}",
        "{\"version\": \"1\"}",
        std::string(100000, '['),
        "{\"version\": 1, \"count\": -1, \"left\": null, \"jobs\": []}",
        "{\"version\": 1, \"count\": 0, \"left\": \"../../x\", \"jobs\": []}",
        "{\"version\": 1, \"count\": 0, \"left\": null, \"jobs\": [1]}",
        jobOfTime("253402300800"),
        "\xff\xfe"};
    for (const std::string& text : texts) {
        damage("history.json", text);
        damage("journal.json", text);
        damage("index.json", text);
        try {
            safe.history();
            FAIL() << text.substr(0, 100);
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.kind(), FailureKind::NothingKept);
            EXPECT_THAT(failure.what(), HasSubstr("history.json"));
        }
        EXPECT_THROW(safe.journal(), Failure) << text.substr(0, 100);
        EXPECT_TRUE(safe.index().files.empty());
    }
}

TEST_F(Safe, SnapshotsWithNamesThatLeadElsewhereAreRefused) {
    PhoneSafe safe(kUdid, folder(), disk_);
    for (const std::string name : {"..", ".", "", "a/b", "../../DCIM/IMG_0001.JPG"}) {
        Snapshot snapshot;
        snapshot.files.insert_or_assign(name, Snapshot::File{safe.contents().put("x"), {}});
        const Digest kept = safe.keep(snapshot);
        EXPECT_THROW(safe.snapshot(kept), Failure) << name;
    }
}

TEST_F(Safe, NothingIsDroppedWhileADocumentCannotBeRead) {
    PhoneSafe safe(kUdid, folder(), disk_);
    doJob(safe, 1);
    PhoneSafe other("fedcba9876543210", folder(), disk_);
    safe.contents().put("nobody's");
    damage("history.json", "{");
    const size_t count = contentCount();
    other.tidy();
    safe.tidy();
    EXPECT_EQ(contentCount(), count);
}

TEST_F(Safe, NothingIsDroppedWhileAnotherTakesContentsIn) {
    PhoneSafe safe(kUdid, folder(), disk_);
    const Content content = safe.contents().put("on its way to a journal");
    {
        PhoneSafe other("fedcba9876543210", folder(), disk_);
        other.tidy();
    }
    EXPECT_TRUE(safe.contents().has(content));
    safe.tidy();
    EXPECT_FALSE(safe.contents().has(content)) << "nobody else is there now";
}

TEST_F(Safe, WaitsWhileAnotherHasThePhone) {
    auto first = std::make_unique<PhoneSafe>(kUdid, folder(), disk_);
    std::atomic<bool> isWritten = false;
    std::thread other([&] {
        const PhoneSafe second(kUdid, folder(), disk_);
        EXPECT_TRUE(isWritten);
        EXPECT_TRUE(second.journal());
    });
    first->write(journalOf(*first, 1));
    isWritten = true;
    first.reset();
    other.join();
}

TEST_F(Safe, IsSoundWhereverItsProcessIsKilled) {
    const auto work = [&](Disk& disk) {
        PhoneSafe safe(kUdid, folder(), disk);
        doJob(safe, 6);
    };
    const fs::path prepared = folder().string() + " with five jobs";
    {
        PhoneSafe safe(kUdid, prepared, disk_);
        for (uint64_t number = 1; number <= 5; ++number) {
            doJob(safe, number);
        }
    }
    int n = 0;
    bool isKilled = true;
    while (isKilled) {
        ++n;
        fs::remove_all(folder());
        fs::copy(prepared, folder(), fs::copy_options::recursive);
        isKilled = isKilledAt(n, work);
        SCOPED_TRACE("killed before call " + std::to_string(n));
        PhoneSafe safe(kUdid, folder(), disk_);
        const History history = safe.history();
        ASSERT_THAT(history.jobs, SizeIs(5));
        EXPECT_TRUE(history.jobs.back().time == 5 || history.jobs.back().time == 6);
        std::vector<Digest> snapshots;
        for (const Job& job : history.jobs) {
            snapshots.insert(snapshots.end(), {job.before, job.after});
        }
        if (const auto journal = safe.journal()) {
            snapshots.insert(snapshots.end(), {journal->job.before, journal->job.after});
        }
        for (const Digest& digest : snapshots) {
            const Snapshot snapshot = safe.snapshot(digest);
            EXPECT_NO_THROW(safe.contents().bytes(snapshot.catalogue->digest));
            EXPECT_NO_THROW(safe.contents().bytes(snapshot.files.at("A.m4r").content.digest));
        }
        // What was broken off can be done again.
        doJob(safe, 7);
        EXPECT_EQ(safe.history().jobs.back().time, 7U);
        EXPECT_FALSE(safe.journal());
    }
    EXPECT_GT(n, 30);
}

} // namespace krl::engine::testing
