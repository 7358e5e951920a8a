#include "audio/songs/SongNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace krl::audio;
using namespace krl::engine;
using testing::ElementsAre;

namespace {

/// A ringtone that is wanted, made of a content.
LocalRingtone song(const std::string& name, const std::string& content) {
    return {.name = name, .path = "/x", .type = "m4r", .size = 1, .source = digestOf(content)};
}

PhoneRingtone onPhone(const std::string& name, const std::string& content = {}) {
    PhoneRingtone ringtone;
    ringtone.name = name;
    ringtone.size = 1;
    if (!content.empty()) {
        ringtone.source = sourceText(digestOf(content), 1);
    }
    return ringtone;
}

std::vector<std::string> named(std::vector<LocalRingtone> wanted,
                               const std::vector<PhoneRingtone>& there = {},
                               Others others = Others::Go) {
    std::vector<LocalRingtone*> pointers;
    for (LocalRingtone& ringtone : wanted) {
        pointers.push_back(&ringtone);
    }
    nameApart(pointers, there, others);
    std::vector<std::string> names;
    for (const LocalRingtone& ringtone : wanted) {
        names.push_back(ringtone.name);
    }
    return names;
}

} // namespace

TEST(SongNames, TheSecondOfOneNameHasANumber) {
    EXPECT_THAT(named({song("A", "1"), song("B", "2"), song("A", "3"), song("A", "4")}),
                ElementsAre("A", "B", "A (2)", "A (3)"));
}

TEST(SongNames, AreOneHoweverAccentsAreWritten) {
    EXPECT_THAT(named({song("Cafe\u0301", "1"), song("Caf\u00E9", "2")}),
                ElementsAre("Caf\u00E9", "Caf\u00E9 (2)"));
}

TEST(SongNames, AreSpelledAsThePhoneHasThem) {
    EXPECT_THAT(named({song("Caf\u00E9", "1")}, {onPhone("Cafe\u0301")}),
                ElementsAre("Cafe\u0301"));
    EXPECT_THAT(named({song("Caf\u00E9", "1")}, {onPhone("Cafe\u0301"), onPhone("Caf\u00E9")}),
                ElementsAre("Caf\u00E9"))
        << "the same is nearer than what looks like it";
}

TEST(SongNames, ASongWhoseNameIsANumberedOneKeepsIt) {
    EXPECT_THAT(named({song("A", "1"), song("A", "2"), song("A (2)", "3")}),
                ElementsAre("A", "A (3)", "A (2)"));
}

TEST(SongNames, WhatThePhoneHoldsKeepsItsNameWhenSongsComeAndGo) {
    const std::vector<PhoneRingtone> there{onPhone("A", "1"), onPhone("A (2)", "2")};
    EXPECT_THAT(named({song("A", "2")}, there), ElementsAre("A (2)")) << "the first has gone";
    EXPECT_THAT(named({song("A", "0"), song("A", "1"), song("A", "2")}, there),
                ElementsAre("A (3)", "A", "A (2)"))
        << "one has come, and is sorted before them";
    EXPECT_THAT(named({song("A", "2"), song("A", "1")}, there), ElementsAre("A (2)", "A"));
}

TEST(SongNames, ASongWithAnotherTitleGetsThatOne) {
    EXPECT_THAT(named({song("New", "1")}, {onPhone("Old", "1")}), ElementsAre("New"));
    EXPECT_THAT(named({song("A", "1")}, {onPhone("A (live)", "1")}), ElementsAre("A"));
    EXPECT_THAT(named({song("A", "1")}, {onPhone("A ()", "1")}), ElementsAre("A"));
}

TEST(SongNames, ASongThatIsThereTwiceIsTwoRingtones) {
    const std::vector<PhoneRingtone> there{onPhone("A", "1"), onPhone("A (2)", "1")};
    EXPECT_THAT(named({song("A", "1"), song("A", "1")}, there), ElementsAre("A", "A (2)"));
    EXPECT_THAT(named({song("A", "1")}, there), ElementsAre("A"));
}

TEST(SongNames, NumbersOfWhatStaysAreNotTaken) {
    const std::vector<PhoneRingtone> there{onPhone("A (2)", "9")};
    EXPECT_THAT(named({song("A", "1"), song("A", "2")}, there, Others::Stay),
                ElementsAre("A", "A (3)"));
    EXPECT_THAT(named({song("A", "1"), song("A", "2")}, there, Others::Go),
                ElementsAre("A", "A (2)"));
}
