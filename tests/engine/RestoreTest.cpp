// Phones that are brought back into a state of the safe.
#include "engine/restore/Restoration.h"
#include "tests/engine/SafeFixture.h"

#include <random>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace krl::engine::testing {
namespace {

class Restore : public SafeTest {
protected:
    OwnContents all(const Snapshot& one, const Snapshot& other) const {
        OwnContents own;
        own.add(one);
        own.add(other);
        return own;
    }

    /// Puts one state back over another, breaking off at each call in turn, once and for good, and
    /// again until it is done; between the two the catalogue is always one of them.
    void sweep(const PhoneSide& target, const PhoneSide& now) {
        put(target);
        const Snapshot wanted = look();
        for (const bool forGood : {false, true}) {
            bool metAFault = true;
            for (int n = 1; metAFault; ++n) {
                SCOPED_TRACE(fmt::format("call {} {}", n, forGood ? "and all later" : "alone"));
                ASSERT_LT(n, 2000) << "it never ended";
                put(now);
                const OwnContents own = all(look(), wanted);
                forGood ? fake().failFromCall(n, kAFCNotConnected)
                        : fake().failNthCall(n, kAFCUnknownError);
                try {
                    restore(wanted, own);
                } catch (const Failure&) {
                    // Once more, below.
                }
                metAFault = fake().faultsMet() > 0;
                fake().clearFaults();
                EXPECT_TRUE(side().catalogue == target.catalogue ||
                            side().catalogue == now.catalogue);
                restore(wanted, own);
                ASSERT_EQ(side(), target);
            }
        }
    }
};

/// A state with few names and contents, so that they meet; of different sizes, since the phone tells
/// no times.
PhoneSide randomSide(std::mt19937& random) {
    const std::vector<std::string> names{"ABCD.m4r", "EFGH.m4r", "IJKL.mp3", "MNOP.m4r",
                                         "QRST.m4r"};
    const std::vector<std::string> contents{"", "one", "four", "three", std::string(70000, 'x')};
    PhoneSide side;
    if (random() % 5 > 0) {
        side.catalogue = "catalogue " + std::to_string(random() % 3);
    }
    for (const std::string& name : names) {
        if (random() % 3 > 0) {
            side.files[name] = contents[random() % contents.size()];
        }
    }
    return side;
}

} // namespace

TEST_F(Restore, BringsAnyStateBackOverAnyOther) {
    const unsigned seed = std::random_device{}();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 60; ++round) {
        const PhoneSide target = randomSide(random);
        const PhoneSide now = randomSide(random);
        put(target);
        const Snapshot wanted = look();
        put(now);
        restore(wanted, all(look(), wanted));
        ASSERT_EQ(side(), target) << "round " << round;
    }
}

TEST_F(Restore, ComesToItsEndFromWhereverItWasBrokenOff) {
    // Two that change places, one that has only moved, one that is overwritten, one that is gone,
    // two that are new.
    sweep({"the old catalogue",
           {{"A.m4r", "a"}, {"B.m4r", "b"}, {"C.m4r", "c"}, {"D.m4r", "d"}, {"E.m4r", ""}}},
          {"the new catalogue, which is longer",
           {{"A.m4r", "b"}, {"B.m4r", "a"}, {"X.m4r", "c"}, {"D.m4r", "other"}, {"Y.m4r", "y"}}});
}

TEST_F(Restore, ComesToItsEndOnAPhoneThatWasWiped) {
    sweep({"the catalogue", {{"A.m4r", "a"}, {"B.mp3", "b"}, {"B.m4r", ""}}}, {});
}

TEST_F(Restore, ComesToItsEndWhereNothingIsToBe) {
    sweep({}, {"the catalogue", {{"A.m4r", "a"}, {"B.mp3", "b"}, {"B.m4r", ""}}});
}

TEST_F(Restore, MakesTheFoldersThatAreMissing) {
    put({"catalogue", {{"A.m4r", "a"}}});
    const Snapshot wanted = look();
    put({});
    fake().phone().remove(kRingtonesFolder).remove("/iTunes_Control/iTunes");
    fake().phone().remove("/iTunes_Control");
    restore(wanted, {});
    EXPECT_EQ(side(), (PhoneSide{"catalogue", {{"A.m4r", "a"}}}));
}

TEST_F(Restore, LeavesNoFolderWhereThereWasNone) {
    const Snapshot wanted = look();
    ASSERT_FALSE(wanted.hasFolder);
    put({"catalogue", {{"A.m4r", "a"}}});
    restore(wanted, all(look(), wanted));
    EXPECT_FALSE(fake().phone().hasDirectory(kRingtonesFolder));
}

TEST_F(Restore, RenamesWhatHasOnlyMoved) {
    put({"catalogue", {{"A.m4r", "the sound"}}});
    const Snapshot wanted = look();
    put({"catalogue", {{"B.m4r", "the sound"}}});
    const OwnContents own = all(look(), wanted);
    fake().clearCalls();
    restore(wanted, own);
    EXPECT_THAT(fake().callsOf("AFCRenamePath"), SizeIs(1));
    EXPECT_THAT(fake().callsOf("AFCFileRefWrite"), IsEmpty());
}

TEST_F(Restore, TakesNamesOfAnyBytes) {
    const PhoneSide target{"catalogue",
                           {{"\xff\xfe broken.m4r", "1"},
                            {"line\nbreak\x01.m4r", "2"},
                            {"\xE2\x98\x83.m4r", "3"},
                            {" .m4r", "4"}}};
    put(target);
    const Snapshot wanted = look();
    put({});
    restore(wanted, {});
    EXPECT_EQ(side(), target);
}

TEST_F(Restore, PutsNothingOverWhatIsNotItsOwn) {
    put({"catalogue", {{"A.m4r", "a"}}});
    const Snapshot wanted = look();
    put({"another program's", {{"A.m4r", "theirs"}, {"Z.m4r", "theirs too"}}});
    const RestorePlan plan = planRestore(look(), wanted, {}, /*roomFirst=*/false);
    EXPECT_TRUE(plan.catalogueInTheWay);
    EXPECT_THAT(plan.inTheWay, ElementsAre("A.m4r"));
    EXPECT_THAT(plan.left, ElementsAre("Z.m4r"));
}

TEST_F(Restore, LeavesFilesOfOthersWhereTheyAre) {
    put({"catalogue", {{"A.m4r", "a"}}});
    const Snapshot wanted = look();
    put({std::nullopt, {{"Z.m4r", "theirs"}}});
    restore(wanted, {});
    EXPECT_EQ(side(), (PhoneSide{"catalogue", {{"A.m4r", "a"}, {"Z.m4r", "theirs"}}}));
}

TEST_F(Restore, WithEverythingGivenFreeLeavesExactlyTheState) {
    const PhoneSide target{"catalogue", {{"A.m4r", "a"}}};
    put(target);
    const Snapshot wanted = look();
    put({"another program's", {{"A.m4r", "theirs"}, {"Z.m4r", "theirs too"}}});
    OwnContents own;
    own.everything = true;
    restore(wanted, own);
    EXPECT_EQ(side(), target);
}

TEST_F(Restore, MakesRoomFirstWhereThereIsNone) {
    put({"catalogue", {{"A.m4r", "aaaa"}}});
    const Snapshot wanted = look();
    put({"other", {{"B.m4r", "bbbb"}, {"A.m4r", "cccc"}}});
    const OwnContents own = all(look(), wanted);
    fake().phone().freeSpace(3);
    fake().clearCalls();
    restore(wanted, own);
    const auto changes = fake().callsOf({"AFCRemovePath", "AFCFileRefWrite"});
    ASSERT_GE(changes.size(), 3U);
    EXPECT_THAT(changes[0], StartsWith("AFCRemovePath"));
    EXPECT_THAT(changes[1], StartsWith("AFCRemovePath"));
    EXPECT_THAT(changes[2], StartsWith("AFCFileRefWrite"));
}

TEST_F(Restore, KnowsWhatItsStepsNeedAtTheWorstMoment) {
    const auto content = [](const std::string& bytes) {
        return Content{digestOf(bytes), bytes.size()};
    };
    const auto needed = [&](const std::string& replaced, bool roomFirst) {
        const Snapshot now{content("catalogue"), true, {{"A.m4r", {content(replaced), {}}}}};
        const Snapshot target{content("other"),
                              true,
                              {{"A.m4r", {content("123456"), {}}}, {"B.m4r", {content("bb"), {}}}}};
        OwnContents own;
        own.add(now);
        return planRestore(now, target, own, roomFirst).spaceNeeded;
    };
    // 6 beside those that they replace, then 2, then 5 beside the catalogue.
    EXPECT_EQ(needed("aaaa", /*roomFirst=*/false), 6U - 4U + 2U + 5U);
    EXPECT_EQ(needed("aaaa", /*roomFirst=*/true), 6U - 4U + 2U + 5U);
    EXPECT_EQ(needed(std::string(20, 'a'), /*roomFirst=*/false), 6U);
    EXPECT_EQ(needed(std::string(20, 'a'), /*roomFirst=*/true), 0U);
}

TEST_F(Restore, WithoutRoomIsRefusedBeforeAnythingIsWrittenDown) {
    put({"catalogue", {{"A.m4r", "aaaa"}}});
    const Snapshot wanted = look();
    const PhoneSide now{"catalogue", {}};
    put(now);
    fake().phone().freeSpace(3);
    fake().clearCalls();
    PhoneSafe safe(kUdid, folder(), disk());
    PhoneFiles files(device());
    Restorer restorer(files, safe, {});
    Restoration restoration(safe, restorer, {.what = "restore", .target = wanted, .own = {}});
    try {
        restoration.carryOut();
        FAIL() << "there was room";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.kind(), FailureKind::NoSpace);
    }
    EXPECT_FALSE(safe.journal());
    EXPECT_THAT(fake().callsOf({"AFCFileRefWrite", "AFCRemovePath", "AFCRenamePath"}), IsEmpty());
    fake().phone().freeSpace(4);
    Restoration(safe, restorer, {.what = "restore", .target = wanted, .own = {}}).carryOut();
    EXPECT_EQ(side().files.at("A.m4r"), "aaaa");
}

TEST_F(Restore, FailsWhenTheSafeHasLostAContentAndHarmsNothing) {
    put({"catalogue", {{"A.m4r", "a"}}});
    const Snapshot wanted = look();
    const PhoneSide now{"other", {{"B.m4r", "b"}}};
    put(now);
    const OwnContents own = all(look(), wanted);
    std::filesystem::remove(folder() / "contents" / digestOf("a").hex());
    EXPECT_THROW(restore(wanted, own), Failure);
    EXPECT_EQ(side().catalogue, now.catalogue);
    EXPECT_EQ(side().files["B.m4r"], "b");
}

TEST_F(Restore, WhatIsInTheSafeIsNotReadAgain) {
    put({"catalogue", {{"A.m4r", "aaaa"}, {"B.m4r", "bb"}}});
    const Snapshot first = look();
    {
        PhoneSafe safe(kUdid, folder(), disk());
        safe.writeIndex(indexOf(first));
    }
    fake().clearCalls();
    EXPECT_TRUE(sameContents(look(), first));
    EXPECT_THAT(fake().callsOf("AFCFileRefOpen"), SizeIs(1)) << "the catalogue";
}

TEST_F(Restore, WithoutTimesAFileIsReadAgainOnceTheCatalogueIsAnother) {
    put({"catalogue", {{"A.m4r", "aaaa"}}});
    const Snapshot first = look();
    {
        PhoneSafe safe(kUdid, folder(), disk());
        safe.writeIndex(indexOf(first));
    }
    put({"another", {{"A.m4r", "AAAA"}}});
    EXPECT_EQ(look().files.at("A.m4r").content.digest, digestOf("AAAA"));
}

TEST_F(Restore, WithTimesAFileIsReadAgainOnceItsTimeIsAnother) {
    const auto put = [this](const std::string& contents, const std::string& time) {
        fake().phone().file(ringtonePath("A.m4r"), contents);
        fake().phone().fileInfo(ringtonePath("A.m4r"),
                                {{"st_ifmt", "S_IFREG"}, {"st_size", "4"}, {"st_mtime", time}});
    };
    put("aaaa", "1000");
    {
        const Snapshot first = look();
        PhoneSafe safe(kUdid, folder(), disk());
        safe.writeIndex(indexOf(first));
    }
    fake().phone().file(kCataloguePath, "another");
    fake().clearCalls();
    look();
    EXPECT_THAT(fake().callsOf("AFCFileRefOpen"), SizeIs(1)) << "the catalogue";
    put("AAAA", "2000");
    EXPECT_EQ(look().files.at("A.m4r").content.digest, digestOf("AAAA"));
}

TEST_F(Restore, FoldersAndNamesThatLeadElsewhereAreNoFiles) {
    put({"catalogue", {{"A.m4r", "a"}}});
    fake().phone().directory(ringtonePath("folder"));
    EXPECT_THAT(look().files, SizeIs(1));
}

/// What the phone says of the size of a file that it has.
class ClaimedSize : public Restore, public ::testing::WithParamInterface<const char*> {};

TEST_P(ClaimedSize, ThatThisComputerHasNoRoomForIsRefusedBeforeAnythingIsRead) {
    put({"catalogue", {{"A.m4r", "a"}, {"B.m4r", "b"}}});
    fake().phone().fileInfo(ringtonePath("B.m4r"),
                            {{"st_ifmt", "S_IFREG"}, {"st_size", GetParam()}});
    fake().clearCalls();
    try {
        look();
        FAIL() << "it was read";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.kind(), FailureKind::CannotKeep);
    }
    EXPECT_THAT(fake().callsOf("AFCFileRefOpen"), SizeIs(1)) << "the catalogue";
}

INSTANTIATE_TEST_SUITE_P(Sizes, ClaimedSize,
                         ::testing::Values("1152921504606846976", "18446744073709551615"));

TEST_F(Restore, AFileThatHasMoreThanThePhoneSaysIsNotReadOn) {
    put({"catalogue", {{"A.m4r", std::string(3 * 1024 * 1024, 'a')}}});
    fake().phone().fileInfo(ringtonePath("A.m4r"), {{"st_ifmt", "S_IFREG"}, {"st_size", "4"}});
    fake().clearCalls();
    EXPECT_THROW(look(), Failure);
    EXPECT_THAT(fake().callsOf("AFCFileRefRead"), SizeIs(2)) << "one of the catalogue";
}

TEST_F(Restore, AFailedListingIsNoEmptyFolder) {
    put({"catalogue", {{"A.m4r", "a"}, {"B.m4r", "b"}}});
    fake().failNth("AFCDirectoryRead", 4, kAFCNotConnected);
    EXPECT_THROW(look(), PhoneFileFailure);
}

TEST_F(Restore, WhatThePhoneCallsMissingOnlyOnceIsNotTakenForMissing) {
    put({"catalogue", {{"A.m4r", "a"}, {"B.m4r", "b"}}});
    const Snapshot truth = look();
    int n = 0;
    bool metAFault = true;
    while (metAFault) {
        SCOPED_TRACE(fmt::format("call {}", ++n));
        fake().failNthCall(n, kAFCObjectNotFound);
        std::optional<Snapshot> seen;
        try {
            seen = look();
        } catch (const Failure&) {
            // It has contradicted itself.
        }
        metAFault = fake().faultsMet() > 0;
        fake().clearFaults();
        EXPECT_TRUE(!seen || sameContents(*seen, truth));
    }
    EXPECT_GT(n, 10);
}

TEST_F(Restore, AContentThatIsNotAsLongAsThePhoneSaysIsNone) {
    put({"catalogue", {{"A.m4r", "aaaa"}}});
    for (const std::string& path : {std::string(kCataloguePath), ringtonePath("A.m4r")}) {
        const uint64_t size = fake().phone().contents(path).size();
        for (const uint64_t claimed : {size - 1, size + 1}) {
            SCOPED_TRACE(fmt::format("{}: {}", path, claimed));
            fake().phone().fileInfo(path,
                                    {{"st_ifmt", "S_IFREG"}, {"st_size", std::to_string(claimed)}});
            EXPECT_THROW(look(), Failure);
        }
        fake().phone().fileInfo(path, {{"st_ifmt", "S_IFREG"}, {"st_size", std::to_string(size)}});
        EXPECT_NO_THROW(look());
    }
}

TEST_F(Restore, WhatItHasLeftUnfinishedIsNotTakenForTheWorkOfOthers) {
    const PhoneSide target{"the old catalogue", {{"A.m4r", "a"}, {"B.m4r", "b"}}};
    put(target);
    const Snapshot wanted = look();
    int n = 0;
    bool metAFault = true;
    while (metAFault) {
        SCOPED_TRACE(fmt::format("call {}", ++n));
        put({"the new one", {{"B.m4r", "c"}}});
        const Snapshot now = look();
        fake().failFromCall(n, kAFCNotConnected);
        try {
            PhoneSafe safe(kUdid, folder(), disk());
            PhoneFiles files(device());
            Restorer restorer(files, safe, {});
            Restoration(safe, restorer,
                        {.what = "restore", .target = wanted, .own = all(now, wanted)})
                .carryOut();
        } catch (const Failure&) {
            // Taken up below.
        }
        metAFault = fake().faultsMet() > 0;
        fake().clearFaults();
        PhoneSafe safe(kUdid, folder(), disk());
        if (const auto journal = safe.journal()) {
            PhoneFiles files(device());
            Restorer restorer(files, safe, {});
            EXPECT_NE(endJob(safe, restorer, *journal, Wish::Either, JobTime::Earlier),
                      Ending::ChangedByOthers);
            EXPECT_EQ(side(), target);
        }
    }
    EXPECT_GT(n, 20);
}

} // namespace krl::engine::testing
