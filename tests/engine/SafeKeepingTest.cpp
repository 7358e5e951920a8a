// Jobs that are kept safe, broken off wherever that is possible.
#include "engine/restore/SafeKeeping.h"

#include "tests/engine/SafeFixture.h"

#include <fstream>

using testing::AnyOf;
using testing::Eq;
using testing::IsEmpty;
using testing::SizeIs;

namespace krl::engine::testing {
namespace {

const std::string kNewSound(100, 'n');
const std::string kOtherSound(200, 'o');
const std::string kNewCatalogue(300, 'c');

const PhoneSide kBefore{"the old catalogue",
                        {{"A.m4r", "stays"},
                         {"B.mp3", "moves"},
                         {"D.m4r", "is overwritten"},
                         {"E.m4r", "is removed"},
                         {"F.m4r", "is no catalogue's"}}};

const PhoneSide kAfter{kNewCatalogue,
                       {{"A.m4r", "stays"},
                        {"C.mp3", "moves"},
                        {"C.m4r", ""},
                        {"D.m4r", kNewSound},
                        {"G.m4r", kOtherSound}}};

class Keeping : public SafeTest {
protected:
    Keeping() {
        std::ofstream(local("new"), std::ios::binary) << kNewSound;
        std::ofstream(local("other"), std::ios::binary) << kOtherSound;
        put(kBefore);
    }

    std::string local(const std::string& name) const { return (music_.path() / name).string(); }

    SafeKeeping keeping() { return keeping(disk()); }

    SafeKeeping keeping(Disk& disk) { return {device(), kUdid, "sync", {}, disk}; }

    Intention intention() const {
        using Kind = IntendedChange::Kind;
        return {{{.kind = Kind::Move, .file = "B.mp3", .newFile = "C.mp3"},
                 {.kind = Kind::Write, .file = "C.m4r"},
                 {.kind = Kind::Write, .file = "D.m4r", .source = local("new")},
                 {.kind = Kind::Write, .file = "G.m4r", .source = local("other")},
                 {.kind = Kind::Remove, .file = "E.m4r"},
                 {.kind = Kind::Remove, .file = "F.m4r"}},
                kNewCatalogue};
    }

    /// What the library does then, one request after the other; a write is an emptied file first,
    /// and part of one when it is broken off.
    std::vector<std::function<void()>> requests() {
        std::vector<std::function<void()>> requests;
        const auto write = [&](const std::string& path, const std::string& contents) {
            requests.emplace_back([=, this] { fake().phone().file(path, ""); });
            if (!contents.empty()) {
                requests.emplace_back([=, this] {
                    fake().phone().file(path, contents.substr(0, contents.size() / 2));
                });
                requests.emplace_back([=, this] { fake().phone().file(path, contents); });
            }
        };
        const auto remove = [&](const std::string& name) {
            requests.emplace_back([=, this] { fake().phone().remove(ringtonePath(name)); });
        };
        requests.emplace_back([this] {
            fake().phone().remove(ringtonePath("B.mp3"));
            fake().phone().file(ringtonePath("C.mp3"), "moves");
        });
        write(ringtonePath("C.m4r"), "");
        write(ringtonePath("D.m4r"), kNewSound);
        write(ringtonePath("G.m4r"), kOtherSound);
        remove("E.m4r");
        write(kCataloguePath, kNewCatalogue);
        remove("F.m4r");
        return requests;
    }

    /// Begins the job and breaks it off after so many of its requests.
    void breakOffAfter(size_t count) {
        put(kBefore);
        keeping().begin(intention());
        const auto all = requests();
        std::for_each(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(count),
                      [](const auto& request) { request(); });
    }

    std::optional<Ending> recover() {
        const auto recovered = keeping().recover();
        return recovered ? std::optional(recovered->ending) : std::nullopt;
    }

    History history() { return PhoneSafe(kUdid, folder(), disk()).history(); }

    void forgetAll() { std::filesystem::remove_all(folder()); }

private:
    virtualphone::testing::TemporaryFolder music_;
};

} // namespace

TEST_F(Keeping, NothingIsRecoveredWhereNothingWasBrokenOff) {
    EXPECT_FALSE(keeping().recover());
}

TEST_F(Keeping, BeginningWritesNothingOnThePhone) {
    fake().clearCalls();
    keeping().begin(intention());
    EXPECT_THAT(
        fake().callsOf({"AFCFileRefWrite", "AFCRenamePath", "AFCRemovePath", "AFCDirectoryCreate"}),
        IsEmpty());
    EXPECT_EQ(side(), kBefore);
}

TEST_F(Keeping, AJobBrokenOffAnywhereIsFinishedOrTakenBackWhole) {
    const size_t last = requests().size();
    for (size_t count = 0; count <= last; ++count) {
        SCOPED_TRACE("after " + std::to_string(count) + " requests");
        forgetAll();
        breakOffAfter(count);
        const auto ending = recover();
        // All files have come when the catalogue's turn is.
        const size_t allCome = last - 4;
        EXPECT_EQ(ending, count == 0             ? Ending::NothingHappened
                          : count == last        ? Ending::WasDone
                          : count >= allCome - 1 ? Ending::Finished
                                                 : Ending::TakenBack);
        const bool isDone = ending == Ending::WasDone || ending == Ending::Finished;
        EXPECT_EQ(side(), isDone ? kAfter : kBefore);
        EXPECT_THAT(history().jobs, SizeIs(isDone ? 1 : 0));
        EXPECT_FALSE(recover()) << "the journal is gone";
    }
}

TEST_F(Keeping, ARecoveryBrokenOffAnywhereIsTakenUpByTheNext) {
    // Taken back after a file that is half there, taken back after all moves, and finished.
    const std::vector<std::pair<size_t, bool>> rows{
        {4, false}, {7, true}, {requests().size() - 3, false}};
    for (const auto& [count, forGood] : rows) {
        bool metAFault = true;
        for (int n = 1; metAFault; ++n) {
            SCOPED_TRACE(fmt::format("after {} requests, call {} {}", count, n,
                                     forGood ? "and all later" : "alone"));
            ASSERT_LT(n, 2000);
            breakOffAfter(count);
            forGood ? fake().failFromCall(n, kAFCNotConnected)
                    : fake().failNthCall(n, kAFCUnknownError);
            try {
                recover();
            } catch (const Failure&) {
                // Taken up below.
            }
            metAFault = fake().faultsMet() > 0;
            fake().clearFaults();
            recover();
            ASSERT_THAT(side(), AnyOf(Eq(kBefore), Eq(kAfter)));
            EXPECT_FALSE(recover());
        }
    }
}

TEST_F(Keeping, AJobThatWentWellIsInTheHistory) {
    {
        SafeKeeping keeping = this->keeping();
        keeping.begin(intention());
        for (const auto& request : requests()) {
            request();
        }
        EXPECT_EQ(keeping.finish(Wish::Finish, nullptr), Ending::WasDone);
    }
    EXPECT_EQ(side(), kAfter);
    ASSERT_THAT(history().jobs, SizeIs(1));
    EXPECT_EQ(history().jobs[0].what, "sync");
}

TEST_F(Keeping, ACatalogueThatWasNotWrittenIsWrittenThen) {
    SafeKeeping keeping = this->keeping();
    keeping.begin(intention());
    for (const auto& request : requests()) {
        request();
    }
    fake().phone().file(kCataloguePath, "");
    EXPECT_EQ(keeping.finish(Wish::Finish, nullptr), Ending::Finished);
    EXPECT_EQ(side(), kAfter);
}

TEST_F(Keeping, ACatalogueThatCannotBeWrittenGivesWayToTheOldOne) {
    SafeKeeping keeping = this->keeping();
    keeping.begin(intention());
    for (const auto& request : requests()) {
        request();
    }
    fake().phone().file(kCataloguePath, "the old catalogue");
    // The first rename is that of the new catalogue.
    fake().failNth("AFCRenamePath", 1, kAFCNoSpaceLeft);
    EXPECT_EQ(keeping.finish(Wish::Finish, nullptr), Ending::TakenBack);
    EXPECT_EQ(side(), kBefore);
}

TEST_F(Keeping, WhatArrivedWrongIsReadBackAndPutRight) {
    SafeKeeping keeping = this->keeping();
    keeping.begin(intention());
    for (const auto& request : requests()) {
        request();
    }
    fake().phone().file(ringtonePath("G.m4r"), kOtherSound.substr(0, 50));
    fake().phone().file(ringtonePath("D.m4r"), std::string(kNewSound.size(), 'x'));
    EXPECT_EQ(keeping.finish(Wish::Finish, nullptr), Ending::Finished);
    EXPECT_EQ(side(), kAfter);
}

TEST_F(Keeping, ACancelledJobIsTakenBackEvenWhenAllFilesHaveCome) {
    {
        SafeKeeping keeping = this->keeping();
        keeping.begin(intention());
        const auto all = requests();
        std::for_each(all.begin(), all.end() - 4, [](const auto& request) { request(); });
        EXPECT_EQ(keeping.finish(Wish::TakeBack, nullptr), Ending::TakenBack);
    }
    EXPECT_EQ(side(), kBefore);
    EXPECT_THAT(history().jobs, IsEmpty());
}

TEST_F(Keeping, ACatalogueThatAnotherProgramHasWrittenSinceIsNoGarbledOneOfOurs) {
    const std::string theirs = "<plist version=\"1.0\"><dict><key>Ringtones</key><dict><key>Z.m4r"
                               "</key><dict><key>Name</key><string>Theirs</string></dict></dict>"
                               "</dict></plist>";
    {
        SafeKeeping keeping = this->keeping();
        keeping.begin(intention());
        for (const auto& request : requests()) {
            request();
        }
        fake().phone().file(kCataloguePath, theirs);
        fake().phone().file(ringtonePath("Z.m4r"), "theirs");
        EXPECT_EQ(keeping.finish(Wish::Finish, nullptr), Ending::ChangedByOthers);
    }
    EXPECT_EQ(side().catalogue, theirs);
    EXPECT_EQ(side().files["Z.m4r"], "theirs");
    EXPECT_THAT(history().jobs, SizeIs(1)) << "what the job had put in the safe is to be had again";
}

TEST_F(Keeping, AnotherProgramsCatalogueIsLeftAlone) {
    breakOffAfter(5);
    fake().phone().file(kCataloguePath, "another program's");
    const PhoneSide theirs = side();
    fake().clearCalls();
    EXPECT_EQ(recover(), Ending::ChangedByOthers);
    EXPECT_EQ(side(), theirs);
    EXPECT_THAT(history().jobs, SizeIs(1)) << "so that an undo can put back what was before";
    EXPECT_FALSE(recover());
}

TEST_F(Keeping, APhoneThatWasSetUpAnewIsLeftAlone) {
    breakOffAfter(5);
    put({});
    EXPECT_EQ(recover(), Ending::ChangedByOthers);
    EXPECT_EQ(side(), PhoneSide{});
}

TEST_F(Keeping, AFileThatTheJobDoesNotTouchAndIsAnotherNowIsOthersWork) {
    breakOffAfter(5);
    fake().phone().file(ringtonePath("A.m4r"), "rewritten");
    const PhoneSide theirs = side();
    EXPECT_EQ(recover(), Ending::ChangedByOthers);
    EXPECT_EQ(side(), theirs);
}

TEST_F(Keeping, AnotherProgramsFileUnderANameOfTheJobIsLeftAlone) {
    breakOffAfter(2);
    fake().phone().file(ringtonePath("G.m4r"), "another program's");
    const PhoneSide theirs = side();
    EXPECT_EQ(recover(), Ending::ChangedByOthers);
    EXPECT_EQ(side(), theirs);
}

TEST_F(Keeping, AnotherProgramsNewFileStaysBesideAJobTakenBack) {
    breakOffAfter(5);
    fake().phone().file(ringtonePath("Z.m4r"), "another program's");
    EXPECT_EQ(recover(), Ending::TakenBack);
    PhoneSide wanted = kBefore;
    wanted.files["Z.m4r"] = "another program's";
    EXPECT_EQ(side(), wanted);
}

// A job of which nothing has been written when it is finished: the safe carries all of it out.
TEST_F(Keeping, AJobThatIsLeftToItIsDoneWholeOrTakenUpWhereverItBreaksOff) {
    for (const bool forGood : {false, true}) {
        bool metAFault = true;
        for (int n = 1; metAFault; ++n) {
            SCOPED_TRACE(fmt::format("call {} {}", n, forGood ? "and all later" : "alone"));
            ASSERT_LT(n, 2000);
            forgetAll();
            put(kBefore);
            {
                SafeKeeping keeping = this->keeping();
                const Snapshot before = keeping.look();
                EXPECT_TRUE(keeping.isStill(before));
                keeping.begin(before, keeping.afterwards(before, intention()),
                              {"B.mp3", "C.mp3", "C.m4r", "D.m4r", "E.m4r", "F.m4r", "G.m4r"});
                EXPECT_EQ(side(), kBefore);
                forGood ? fake().failFromCall(n, kAFCNotConnected)
                        : fake().failNthCall(n, kAFCUnknownError);
                try {
                    keeping.finish(Wish::Finish);
                } catch (const Failure&) {
                    // Taken up below.
                }
            }
            metAFault = fake().faultsMet() > 0;
            fake().clearFaults();
            recover();
            ASSERT_THAT(side(), AnyOf(Eq(kBefore), Eq(kAfter)));
            EXPECT_TRUE(metAFault || side() == kAfter);
            EXPECT_FALSE(recover());
        }
    }
}

TEST_F(Keeping, AJobThatIsLeftToItAndCancelledIsTakenBack) {
    int asked = 0;
    const RestoreWatch watch{.cancels = [&] { return ++asked == 4; }};
    SafeKeeping keeping(device(), kUdid, "sync", watch, disk());
    const Snapshot before = keeping.look();
    keeping.begin(before, keeping.afterwards(before, intention()),
                  {"B.mp3", "C.mp3", "C.m4r", "D.m4r", "E.m4r", "F.m4r", "G.m4r"});
    EXPECT_THROW(keeping.finish(Wish::Finish), Failure);
    EXPECT_NE(side(), kBefore);
    EXPECT_EQ(keeping.finish(Wish::TakeBack), Ending::TakenBack);
    EXPECT_EQ(side(), kBefore);
}

TEST_F(Keeping, AJournalIsOfItsPhoneAlone) {
    breakOffAfter(5);
    EXPECT_FALSE(SafeKeeping(device(), "ffff", "sync", {}, disk()).recover());
}

TEST_F(Keeping, ADiskThatIsFullIsSaidBeforeAnythingIsWrittenOnThePhone) {
    for (const auto fault : {FaultyDisk::Fault::Full, FaultyDisk::Fault::FullFromThere}) {
        bool failed = true;
        for (int n = 1; failed; ++n) {
            SCOPED_TRACE("call " + std::to_string(n));
            ASSERT_LT(n, 1000);
            forgetAll();
            fake().clearCalls();
            FaultyDisk disk(n, fault);
            try {
                keeping(disk).begin(intention());
            } catch (const Failure& failure) {
                EXPECT_EQ(failure.kind(), FailureKind::CannotKeep);
                EXPECT_EQ(recover().value_or(Ending::NothingHappened), Ending::NothingHappened);
            }
            failed = disk.hasFailed();
            EXPECT_THAT(fake().callsOf({"AFCFileRefWrite", "AFCRenamePath", "AFCRemovePath"}),
                        IsEmpty());
            EXPECT_EQ(side(), kBefore);
        }
    }
}

TEST_F(Keeping, ASecondJobReadsOnlyWhatTheFirstHasWritten) {
    {
        SafeKeeping keeping = this->keeping();
        keeping.begin(intention());
        for (const auto& request : requests()) {
            request();
        }
        keeping.finish(Wish::Finish, nullptr);
    }
    SafeKeeping keeping = this->keeping();
    fake().clearCalls();
    keeping.begin({{{.kind = IntendedChange::Kind::Remove, .file = "A.m4r"}}, "third"});
    EXPECT_THAT(fake().callsOf("AFCFileRefOpen"), SizeIs(1)) << "the catalogue";
    fake().phone().remove(ringtonePath("A.m4r")).file(kCataloguePath, "third");
    fake().clearCalls();
    keeping.finish(Wish::Finish, nullptr);
    EXPECT_THAT(fake().callsOf("AFCFileRefOpen"), SizeIs(1)) << "the catalogue";
}

} // namespace krl::engine::testing
