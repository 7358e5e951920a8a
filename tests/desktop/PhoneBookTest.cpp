#include "desktop/session/PhoneBook.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace krl::desktop {
namespace {

PhoneReading holding(const std::map<std::string, uint64_t>& ringtones) {
    PhoneReading reading;
    for (const auto& [name, size] : ringtones) {
        engine::PhoneRingtone ringtone;
        ringtone.name = name;
        ringtone.size = size;
        reading.ringtones.push_back(ringtone);
    }
    return reading;
}

SongIsReady ready(const std::string& name, uint64_t size) {
    return {{.name = name, .path = "/songs/" + name + ".m4r", .type = "m4r", .size = size}, 30.0};
}

class PhoneBooks : public ::testing::Test {
protected:
    PhoneBook book;

    uint64_t addReady(const std::string& name, uint64_t size) {
        const uint64_t song = book.add({name + ".m4r"});
        book.hear(song, ready(name, size));
        return song;
    }

    void take(PhoneReading reading) {
        book.take(std::make_shared<const Holdings>(std::move(reading)));
    }

    std::vector<Row> rows() const {
        std::vector<Row> result;
        for (const PlacePointer& place : book.places()) {
            result.push_back(book.row(place->key));
        }
        return result;
    }

    std::vector<Mark> marks() const {
        std::vector<Mark> result;
        for (const Row& row : rows()) {
            result.push_back(row.mark);
        }
        return result;
    }

    std::string keyOf(const std::string& name) const {
        for (const Row& row : rows()) {
            if (row.name == name) {
                return row.key;
            }
        }
        return {};
    }
};

} // namespace

TEST_F(PhoneBooks, SortByName) {
    take(holding({{"Horn", 1}, {"Bells", 1}}));
    addReady("Harp", 1);
    const std::vector<Row> rows = this->rows();
    ASSERT_THAT(rows, SizeIs(3));
    EXPECT_FALSE(book.isEmpty());
    EXPECT_EQ(rows[0].name, "Bells");
    EXPECT_EQ(rows[1].name, "Harp");
    EXPECT_EQ(rows[2].name, "Horn");
}

TEST_F(PhoneBooks, FollowASongUntilItIsReady) {
    const uint64_t song = book.add({"/songs/track 7.flac"});
    EXPECT_EQ(rows().front().name, "track 7");
    EXPECT_THAT(marks(), ElementsAre(Mark::Checking));
    EXPECT_EQ(book.sum().underWay, 1U);
    book.hear(song, SongIsPrepared{});
    EXPECT_THAT(marks(), ElementsAre(Mark::Preparing));
    book.hear(song, ready("Seven", 700));
    EXPECT_THAT(marks(), ElementsAre(Mark::New));
    EXPECT_EQ(rows().front().name, "Seven");
    EXPECT_EQ(book.sum().addedBytes, 700U);
    EXPECT_EQ(book.sum().underWay, 0U);
}

TEST_F(PhoneBooks, HaveNoEditsLeftAfterAReplacementWasCarriedOut) {
    take(holding({{"Harp", 1}}));
    addReady("Harp", 1);
    book.remove({keyOf("Harp")});
    const WantedChange wanted = book.wanted();
    ASSERT_THAT(wanted.added, SizeIs(1));
    ASSERT_THAT(wanted.removed, ElementsAre("Harp"));
    addReady("Horn", 1);
    book.carriedOut(wanted);
    take(holding({{"Harp", 1}}));
    book.dropFulfilled();
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone, Mark::New)) << "what came meanwhile stays";
    EXPECT_THAT(book.wanted().removed, IsEmpty());
}

TEST_F(PhoneBooks, SayWhyASongCannotBeUsed) {
    book.hear(book.add({"a.txt"}),
              engine::Failure(engine::FailureKind::UnsupportedType, "no sound"));
    EXPECT_THAT(marks(), ElementsAre(Mark::Unusable));
    EXPECT_EQ(rows().front().reason, "no sound");
    EXPECT_EQ(book.sum().changes(), 0U);
}

TEST_F(PhoneBooks, TakeOffAndBringBack) {
    take(holding({{"Harp", 500}}));
    book.remove({keyOf("Harp")});
    EXPECT_THAT(marks(), ElementsAre(Mark::Removed));
    EXPECT_EQ(book.sum().removedBytes, 500U);
    EXPECT_THAT(book.wanted().removed, ElementsAre("Harp"));
    book.bringBack({keyOf("Harp")});
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone));
    EXPECT_FALSE(book.hasEdits());
}

TEST_F(PhoneBooks, ForgetASongThatIsTakenOffUntilItIsBroughtBack) {
    addReady("Harp", 1);
    const std::string key = keyOf("Harp");
    book.remove({key});
    EXPECT_THAT(rows(), IsEmpty());
    EXPECT_TRUE(book.isEmpty());
    EXPECT_THAT(book.wanted().added, IsEmpty());
    book.bringBack({key});
    EXPECT_THAT(book.wanted().added, SizeIs(1));
}

TEST_F(PhoneBooks, HoldBackANameThatIsTakenUntilItIsFree) {
    take(holding({{"Harp", 500}}));
    addReady("Harp", 600);
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone, Mark::NameTaken));
    EXPECT_THAT(book.wanted().added, IsEmpty());
    book.remove({keyOf("Harp")});
    EXPECT_THAT(marks(), ElementsAre(Mark::Removed, Mark::New));
    EXPECT_THAT(book.wanted().added, SizeIs(1));
}

TEST_F(PhoneBooks, LetOneOfTwoSongsOfANameGo) {
    addReady("Harp", 1);
    addReady("Harp", 2);
    EXPECT_THAT(marks(), ElementsAre(Mark::New, Mark::NameTaken));
    EXPECT_THAT(book.wanted().added, SizeIs(1));
}

TEST_F(PhoneBooks, DropEditsThatThePhoneHas) {
    take(holding({{"Harp", 500}}));
    book.remove({keyOf("Harp")});
    addReady("Horn", 600);
    addReady("Bells", 700);
    take(holding({{"Horn", 600}}));
    book.dropFulfilled();
    EXPECT_THAT(book.wanted().removed, IsEmpty());
    ASSERT_THAT(book.wanted().added, SizeIs(1));
    EXPECT_EQ(book.wanted().added.front().name, "Bells");
}

TEST_F(PhoneBooks, KeepASongThatWasGivenTheNameOfWhatIsStillToBeRemoved) {
    take(holding({{"Harp", 500}}));
    book.remove({keyOf("Harp")});
    addReady("Horn", 500);
    book.rename(keyOf("Horn"), "Harp");
    book.dropFulfilled(); // after a sync that has done nothing
    ASSERT_THAT(book.wanted().added, SizeIs(1));
    EXPECT_EQ(book.wanted().added.front().name, "Harp");
    EXPECT_THAT(book.wanted().removed, ElementsAre("Harp"));
}

TEST_F(PhoneBooks, TakeNothingOffThatCameAfterItsNamesakeWasGone) {
    book.restore({.removed = {"Harp"}, .renamed = {{"Horn", "Hupe"}}, .songs = {}});
    take(holding({}));
    EXPECT_FALSE(book.hasEdits());
    take(holding({{"Harp", 1}, {"Horn", 1}}));
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone, Mark::OnPhone));
}

TEST_F(PhoneBooks, DropNothingWhileTheListIsNotWhole) {
    take(holding({{"Harp", 500}, {"Horn", 600}}));
    book.remove({keyOf("Harp")});
    book.rename(keyOf("Horn"), "Hupe");
    const Edits edits = book.edits();
    PhoneReading broken = holding({});
    const engine::Digest state = engine::digestOf("");
    broken.brokenJob = engine::Job{.what = "sync", .time = 0, .before = state, .after = state};
    take(broken);
    book.dropFulfilled();
    EXPECT_EQ(book.edits(), edits);
    PhoneReading damaged = holding({});
    damaged.catalogueIsUnreadable = true;
    take(damaged);
    book.dropFulfilled();
    EXPECT_EQ(book.edits(), edits);
    take(holding({}));
    book.dropFulfilled();
    EXPECT_FALSE(book.hasEdits());
}

TEST_F(PhoneBooks, KnowTheLengthOfWhatWasSent) {
    addReady("Horn", 600);
    take(holding({{"Horn", 600}, {"Harp", 600}}));
    book.dropFulfilled();
    EXPECT_EQ(rows()[0].seconds, std::nullopt);
    EXPECT_EQ(rows()[1].seconds, 30.0);
}

TEST_F(PhoneBooks, KeepASongWhoseNamesakeOnThePhoneIsAnother) {
    addReady("Harp", 600);
    take(holding({{"Harp", 500}}));
    book.dropFulfilled();
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone, Mark::NameTaken));
}

TEST_F(PhoneBooks, LetASongBeCutThatIsReadyToBeAdded) {
    take(holding({{"Harp", 500}}));
    const uint64_t song = book.add({"/songs/horn.flac"});
    EXPECT_FALSE(PhoneBook::canBeCut(rows()[0])) << "on the phone";
    EXPECT_FALSE(PhoneBook::canBeCut(rows()[1])) << "not ready";
    EXPECT_FALSE(book.cutOf(rows()[0].key));
    EXPECT_FALSE(book.cutOf(rows()[1].key));
    SongIsReady made = ready("Horn", 600);
    made.wasPrepared = true;
    book.hear(song, made);
    EXPECT_TRUE(PhoneBook::canBeCut(rows()[1]));
    const auto cut = book.cutOf(keyOf("Horn"));
    ASSERT_TRUE(cut);
    EXPECT_EQ(cut->song, "/songs/horn.flac");
    EXPECT_EQ(cut->name, "Horn");
    EXPECT_EQ(cut->wish.startSeconds, 0);
    EXPECT_EQ(cut->wish.lengthSeconds, 30);
}

TEST_F(PhoneBooks, TakeASongThatGoesAsItIsForAWholeOne) {
    addReady("Horn", 600);
    EXPECT_EQ(book.cutOf(keyOf("Horn"))->wish.lengthSeconds, 40);
}

TEST_F(PhoneBooks, FollowASongThatIsCutAnew) {
    const uint64_t song = addReady("Horn", 600);
    SongCut wanted = *book.cutOf(keyOf("Horn"));
    wanted.name = "Oboe";
    wanted.wish.startSeconds = 12;
    EXPECT_EQ(book.cut(keyOf("Horn"), wanted), song);
    EXPECT_THAT(marks(), ElementsAre(Mark::Preparing));
    EXPECT_FALSE(book.cutOf(keyOf("Oboe"))) << "one at a time";
    EXPECT_THAT(book.wanted().added, IsEmpty());
    SongIsReady made = ready("Oboe", 700);
    made.wasPrepared = true;
    book.hear(song, made);
    EXPECT_EQ(book.cutOf(keyOf("Oboe"))->wish.startSeconds, 12);
    EXPECT_EQ(book.wanted().added.front().size, 700U);
}

TEST_F(PhoneBooks, KeepWhatThereWasWhenASongCannotBeCutAnew) {
    const uint64_t song = addReady("Horn", 600);
    SongCut wanted = *book.cutOf(keyOf("Horn"));
    wanted.name = "Oboe";
    wanted.wish.startSeconds = 12;
    book.cut(keyOf("Horn"), wanted);
    EXPECT_EQ(book.edits().songs.front().cut, wanted.wish);
    book.hear(song, engine::Failure(engine::FailureKind::UnreadableFile, "it has gone"));
    EXPECT_THAT(marks(), ElementsAre(Mark::New));
    EXPECT_EQ(rows().front().name, "Horn");
    EXPECT_EQ(rows().front().reason, "");
    EXPECT_EQ(book.cutOf(keyOf("Horn"))->wish.startSeconds, 0);
    EXPECT_FALSE(book.edits().songs.front().cut);
    EXPECT_EQ(book.wanted().added.front().size, 600U);
}

TEST_F(PhoneBooks, KeepHowASongWasCutFromOneWindowToTheNext) {
    const Edits::Song kept{"/songs/horn.flac", "Oboe", audio::Wish{.startSeconds = 12}};
    const uint64_t song = book.add(kept);
    EXPECT_THAT(book.edits().songs, ElementsAre(kept)) << "before it is made";
    SongIsReady made = ready("Horn", 7);
    made.wasPrepared = true;
    book.hear(song, made);
    EXPECT_EQ(book.cutOf(keyOf("Oboe"))->wish, kept.cut);
    SongCut wanted = *book.cutOf(keyOf("Oboe"));
    wanted.wish.startSeconds = 20;
    const uint64_t version = book.version();
    book.cut(keyOf("Oboe"), wanted);
    EXPECT_NE(book.version(), version) << "it is to be kept anew";
    EXPECT_EQ(book.edits().songs.front().cut->startSeconds, 20);
    book.hear(song, engine::Failure(engine::FailureKind::Unexpected, "no luck"));
    EXPECT_THAT(book.edits().songs, ElementsAre(kept));
}

TEST_F(PhoneBooks, SayWhetherTheEditsFit) {
    PhoneReading reading = holding({});
    reading.facts.freeBytes = 1000;
    take(reading);
    addReady("Harp", 1000);
    EXPECT_TRUE(book.fits());
    addReady("Horn", 1);
    EXPECT_FALSE(book.fits());
}

TEST_F(PhoneBooks, RenameUntilTheOldNameIsTypedAgain) {
    take(holding({{"Harp", 500}}));
    const std::string key = keyOf("Harp");
    book.rename(key, "  Harfe ");
    EXPECT_THAT(marks(), ElementsAre(Mark::Renamed));
    EXPECT_EQ(rows().front().name, "Harfe");
    EXPECT_EQ(rows().front().formerName, "Harp");
    EXPECT_EQ(rows().front().key, key);
    EXPECT_EQ(book.sum().changes(), 1U);
    EXPECT_THAT(book.wanted().renamed, ElementsAre(Pair("Harp", "Harfe")));
    EXPECT_TRUE(book.hasEdits());
    book.rename(key, "Harp");
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone));
    EXPECT_FALSE(book.hasEdits());
}

TEST_F(PhoneBooks, KeepNamesComposed) {
    take(holding({{"Cafe\u0301", 1}, {"Horn", 2}}));
    EXPECT_EQ(book.nameProblem(keyOf("Horn"), "Caf\u00e9"), NameProblem::Taken);
    book.rename(keyOf("Cafe\u0301"), "Caf\u00e9");
    EXPECT_FALSE(book.hasEdits()) << "it looks the same";
    book.rename(keyOf("Horn"), "A\u0308");
    EXPECT_THAT(book.wanted().renamed, ElementsAre(Pair("Horn", "\u00c4")));
}

TEST_F(PhoneBooks, LeaveWhatIsRenamedInItsPlace) {
    take(holding({{"Bells", 1}, {"Harp", 1}, {"Horn", 1}}));
    book.rename(keyOf("Bells"), "Zither");
    EXPECT_EQ(rows().front().name, "Zither");
}

TEST_F(PhoneBooks, GiveNoNameThatAnotherHas) {
    take(holding({{"Harp", 1}, {"Horn", 1}, {"Bells", 1}}));
    addReady("Sunrise", 1);
    const std::string harp = keyOf("Harp");
    EXPECT_EQ(book.nameProblem(harp, " "), NameProblem::Empty);
    EXPECT_EQ(book.nameProblem(harp, "a\x1b"), NameProblem::Unusable);
    EXPECT_EQ(book.nameProblem(harp, "Harp"), NameProblem::None);
    EXPECT_EQ(book.nameProblem(harp, "Horn"), NameProblem::Taken);
    EXPECT_EQ(book.nameProblem(harp, "Sunrise"), NameProblem::Taken);
    EXPECT_EQ(book.nameProblem(keyOf("Sunrise"), "Harp"), NameProblem::Taken);
    book.remove({keyOf("Horn")});
    EXPECT_EQ(book.nameProblem(harp, "Horn"), NameProblem::TakenUntilSync);
    EXPECT_EQ(book.nameProblem(keyOf("Sunrise"), "Horn"), NameProblem::None);
    book.rename(keyOf("Bells"), "Glocken");
    EXPECT_EQ(book.nameProblem(harp, "Bells"), NameProblem::TakenUntilSync);
    EXPECT_EQ(book.nameProblem(harp, "Glocken"), NameProblem::Taken);
    EXPECT_EQ(book.nameProblem(harp, "Harfe"), NameProblem::None);
}

TEST_F(PhoneBooks, NameSongs) {
    take(holding({{"Harp", 1}}));
    addReady("Harp", 600);
    const std::string key = rows()[1].key;
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone, Mark::NameTaken));
    book.rename(key, "Harfe");
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone, Mark::New));
    EXPECT_EQ(book.nameOf(key), "Harfe");
    ASSERT_THAT(book.wanted().added, SizeIs(1));
    EXPECT_EQ(book.wanted().added.front().name, "Harfe");
    EXPECT_EQ(book.wanted().added.front().path, "/songs/Harp.m4r");
    book.begin(book.wanted());
    book.carriedOut(book.wanted());
    EXPECT_FALSE(book.hasEdits());
}

TEST_F(PhoneBooks, LetASongHaveTheOldNameOfAnother) {
    take(holding({{"Harp", 1}}));
    addReady("Harp", 600);
    book.rename(keyOf("Harp"), "Old Harp");
    EXPECT_THAT(marks(), ElementsAre(Mark::Renamed, Mark::New));
    EXPECT_THAT(book.wanted().added, SizeIs(1));
}

TEST_F(PhoneBooks, RenameNothingThatIsRemoved) {
    take(holding({{"Harp", 1}, {"Horn", 1}}));
    const std::string harp = keyOf("Harp");
    book.rename(harp, "Harfe");
    book.remove({harp});
    EXPECT_THAT(marks(), ElementsAre(Mark::Removed, Mark::OnPhone));
    EXPECT_EQ(rows().front().name, "Harp");
    EXPECT_THAT(book.wanted().renamed, IsEmpty());
    book.bringBack({harp});
    EXPECT_THAT(book.wanted().renamed, SizeIs(1)) << "it still has its new name";
    book.remove({harp});
    book.rename(keyOf("Horn"), "Harfe");
    book.bringBack({harp});
    EXPECT_THAT(book.wanted().renamed, ElementsAre(Pair("Horn", "Harfe")));
}

TEST_F(PhoneBooks, DropNamesThatAreGivenOnThePhoneMeanwhile) {
    take(holding({{"Harp", 1}, {"Horn", 1}}));
    book.rename(keyOf("Harp"), "Harfe");
    book.rename(keyOf("Horn"), "Hupe");
    take(holding({{"Harfe", 1}, {"Horn", 1}, {"Hupe", 7}}));
    book.dropFulfilled();
    EXPECT_FALSE(book.hasEdits());
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone, Mark::OnPhone, Mark::OnPhone));
}

TEST_F(PhoneBooks, BringKeptEditsBack) {
    take(holding({{"Harp", 1}, {"Horn", 2}}));
    book.remove({keyOf("Harp")});
    book.rename(keyOf("Horn"), "Hupe");
    const uint64_t song = book.add({"/songs/a.flac", "Given"});
    book.hear(book.add({"/songs/no.txt"}),
              engine::Failure(engine::FailureKind::UnsupportedType, "no"));
    const Edits kept = book.edits();
    EXPECT_EQ(kept, (Edits{.removed = {"Harp"},
                           .renamed = {{"Horn", "Hupe"}},
                           .songs = {{"/songs/a.flac", "Given"}}}));
    book.hear(song, ready("Seven", 1));
    EXPECT_EQ(book.edits(), kept) << "what was made of it is made again";
    PhoneBook other;
    other.restore(kept);
    other.add(kept.songs.front());
    other.take(std::make_shared<const Holdings>(holding({{"Harp", 1}, {"Horn", 2}})));
    EXPECT_EQ(other.edits(), kept);
    other.dropEdits();
    EXPECT_FALSE(other.hasEdits());
    EXPECT_TRUE(other.edits().isEmpty());
}

TEST_F(PhoneBooks, BringNoNameBackThatCannotBe) {
    book.restore({.removed = {"", "gone"},
                  .renamed = {{"Harp", "a\x1b"}, {"Harp", ""}, {"Horn", "Same"}, {"Bells", "Same"}},
                  .songs = {}});
    book.add({"/songs/a.flac", "b\nc"});
    EXPECT_EQ(book.nameOf(rows().front().key), "a");
    take(holding({{"Harp", 1}, {"Horn", 2}, {"Bells", 3}}));
    EXPECT_THAT(book.wanted().renamed, SizeIs(1)) << "one of two of a name";
    EXPECT_EQ(book.sum().changes(), 1U);
}

TEST_F(PhoneBooks, KeepWhatIsEditedWhileANameIsGiven) {
    addReady("Harp", 500);
    take(holding({{"Harp", 500}}));
    book.dropFulfilled();
    book.rename(keyOf("Harp"), "Harfe");
    const WantedChange wanted = book.wanted();
    book.rename(keyOf("Harfe"), "Laute");
    book.carriedOut(wanted);
    take(holding({{"Harfe", 500}}));
    book.dropFulfilled();
    EXPECT_THAT(book.wanted().renamed, ElementsAre(Pair("Harfe", "Laute")));
    EXPECT_EQ(rows().front().seconds, 30.0) << "it is as long as it was";
}

TEST_F(PhoneBooks, RenameOnThePhoneASongThatWasRenamedWhileItWasSent) {
    take(holding({}));
    addReady("Harp", 600);
    const WantedChange wanted = book.wanted();
    book.begin(wanted);
    book.rename(keyOf("Harp"), "Harfe");
    book.carriedOut(wanted);
    take(holding({{"Harp", 600}}));
    book.dropFulfilled();
    EXPECT_THAT(marks(), ElementsAre(Mark::Renamed));
    EXPECT_THAT(book.wanted().added, IsEmpty());
    EXPECT_THAT(book.wanted().renamed, ElementsAre(Pair("Harp", "Harfe")));
}

TEST_F(PhoneBooks, RemoveFromThePhoneASongThatWasRemovedWhileItWasSent) {
    take(holding({}));
    addReady("Harp", 600);
    const WantedChange wanted = book.wanted();
    book.begin(wanted);
    book.remove({keyOf("Harp")});
    book.carriedOut(wanted);
    take(holding({{"Harp", 600}}));
    EXPECT_THAT(marks(), ElementsAre(Mark::Removed));
}

TEST_F(PhoneBooks, RenameOnThePhoneAlsoAfterASyncThatWasFinishedLater) {
    take(holding({}));
    addReady("Harp", 600);
    book.begin(book.wanted());
    book.rename(keyOf("Harp"), "Harfe");
    take(holding({{"Harp", 600}}));
    book.dropFulfilled();
    EXPECT_THAT(marks(), ElementsAre(Mark::Renamed));
}

TEST_F(PhoneBooks, SendUnderItsNewNameASongWhoseSyncWasTakenBack) {
    take(holding({}));
    addReady("Harp", 600);
    book.begin(book.wanted());
    book.rename(keyOf("Harp"), "Harfe");
    take(holding({}));
    book.dropFulfilled();
    ASSERT_THAT(book.wanted().added, SizeIs(1));
    EXPECT_EQ(book.wanted().added.front().name, "Harfe");
}

TEST_F(PhoneBooks, KnowWhatWasSentFromOneWindowToTheNext) {
    take(holding({}));
    addReady("Harp", 600);
    addReady("Horn", 700);
    addReady("Bells", 800);
    book.begin(book.wanted());
    book.rename(keyOf("Harp"), "Harfe");
    book.remove({keyOf("Horn")});
    const Edits kept = book.edits();
    for (const bool hasArrived : {true, false}) {
        PhoneBook next;
        next.restore(kept);
        for (const Edits::Song& song : kept.songs) {
            next.add(song);
        }
        const std::map<std::string, uint64_t> there = {
            {"Harp", 600}, {"Horn", 700}, {"Bells", 800}};
        next.take(std::make_shared<const Holdings>(
            holding(hasArrived ? there : std::map<std::string, uint64_t>())));
        const uint64_t version = next.version();
        next.dropFulfilled();
        EXPECT_NE(next.version(), version) << "what is kept is another";
        if (hasArrived) {
            EXPECT_THAT(next.edits().songs, IsEmpty());
            EXPECT_THAT(next.wanted().renamed, ElementsAre(Pair("Harp", "Harfe")));
            EXPECT_THAT(next.wanted().removed, ElementsAre("Horn"));
        } else {
            EXPECT_THAT(next.edits().songs,
                        ElementsAre(Edits::Song{"Harp.m4r", "Harfe"}, Edits::Song{"Bells.m4r"}));
            EXPECT_THAT(next.edits().removed, IsEmpty());
        }
    }
}

TEST_F(PhoneBooks, KeepTheOwnNameOfWhatWasSentUnderAnother) {
    take(holding({}));
    addReady("Harp", 600);
    book.rename(keyOf("Harp"), "Harfe");
    book.begin(book.wanted());
    book.rename(keyOf("Harfe"), "Harp");
    ASSERT_THAT(book.edits().songs, SizeIs(1));
    EXPECT_EQ(book.edits().songs.front(),
              (Edits::Song{"Harp.m4r", "Harp", {}, Edits::Sent{"Harfe", 600}}));
}

TEST_F(PhoneBooks, GiveWhatWasSentNoNameThatThePhoneHasMeanwhile) {
    take(holding({}));
    addReady("Harp", 600);
    book.begin(book.wanted());
    book.rename(keyOf("Harp"), "Harfe");
    take(holding({{"Harp", 600}, {"Harfe", 1}}));
    book.dropFulfilled();
    EXPECT_THAT(marks(), ElementsAre(Mark::OnPhone, Mark::OnPhone));
}

TEST_F(PhoneBooks, GiveWhatWasSentItsOwnNameComposed) {
    take(holding({}));
    addReady("Glo\u0308ckchen", 600);
    const std::string key = rows().front().key;
    book.rename(key, "Bells");
    const WantedChange wanted = book.wanted();
    book.begin(wanted);
    book.rename(key, "Glo\u0308ckchen");
    book.carriedOut(wanted);
    take(holding({{"Bells", 600}}));
    EXPECT_THAT(book.wanted().renamed, ElementsAre(Pair("Bells", "Gl\u00f6ckchen")));
}

TEST_F(PhoneBooks, TellWhichRowsHaveChanged) {
    take(holding({{"Harp", 1}, {"Horn", 2}}));
    EXPECT_TRUE(book.takeChanges().areAll);
    EXPECT_THAT(book.takeChanges().rows, IsEmpty());
    book.remove({keyOf("Horn")});
    const RowChanges removal = book.takeChanges();
    EXPECT_FALSE(removal.areAll);
    ASSERT_THAT(removal.rows, SizeIs(1));
    EXPECT_EQ(removal.rows.front().now->key, keyOf("Horn"));
    EXPECT_EQ(removal.rows.front().before, removal.rows.front().now);
    const uint64_t song = book.add({"/songs/x.m4a"});
    EXPECT_EQ(book.takeChanges().rows.front().before, nullptr);
    book.hear(song, ready("Another", 7));
    const RowChanges move = book.takeChanges();
    ASSERT_THAT(move.rows, SizeIs(1));
    EXPECT_LT(*move.rows.front().now, *move.rows.front().before);
    book.remove({keyOf("Another")});
    EXPECT_EQ(book.takeChanges().rows.front().now, nullptr);
}

TEST_F(PhoneBooks, LetTheNextSongHaveANameThatIsFreeAgain) {
    take(holding({}));
    addReady("Harp", 1);
    addReady("Harp", 2);
    EXPECT_THAT(marks(), ElementsAre(Mark::New, Mark::NameTaken));
    EXPECT_EQ(book.sum().addedBytes, 1U);
    book.takeChanges();
    book.remove({rows().front().key});
    EXPECT_EQ(book.takeChanges().rows.size(), 2U) << "the next one is another too";
    EXPECT_THAT(marks(), ElementsAre(Mark::New));
    EXPECT_EQ(book.sum().addedBytes, 2U);
    EXPECT_EQ(book.sum().added, 1U);
}

} // namespace krl::desktop
