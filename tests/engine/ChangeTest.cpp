// Edits of the working list of a phone on the wire.
#include "engine/plan/Change.h"

#include "tests/support/VirtualPhoneFixture.h"

#include <gmock/gmock.h>

#include <algorithm>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::Pair;
using testing::UnorderedElementsAre;

namespace krl::engine {
namespace {

constexpr char kEntries[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>Ringtones</key><dict>
<key>KDAQ.m4r</key><dict><key>Name</key><string>Marimba</string><key>GUID</key><string>M</string>
<key>TrackID</key><integer>1</integer></dict>
<key>QJHE.aiff</key><dict><key>Name</key><string>Harp</string><key>GUID</key><string>H</string>
<key>LocalPath</key><string>/nowhere/harp.aiff</string></dict>
<key>BQJH.m4r</key><dict><key>Name</key><string>Plain</string>
<key>TrackID</key><integer>2</integer><key>More</key><true/></dict>
</dict></dict></plist>)";

class Change : public virtualphone::testing::VirtualPhoneTest {
protected:
    void SetUp() override {
        VirtualPhoneTest::SetUp();
        put(kCataloguePath, kEntries);
        for (const char* file : {"KDAQ.m4r", "QJHE.aiff", "BQJH.m4r"}) {
            put(std::string(kRingtonesFolder) + "/" + file, "sound");
        }
    }

    static std::map<std::string, std::string> guids(KRTRingtoneManager& tones, CFStringRef list) {
        std::map<std::string, std::string> guids;
        const auto lists = tones.generateChangeLists();
        for (const auto& [name, entry] : cf::pairs(cf::dictionaryAt(lists.get(), list))) {
            guids[cf::text(cf::cast<CFStringRef>(name))] =
                cf::textAt(cf::cast<CFDictionaryRef>(entry), KRTFileKey);
        }
        return guids;
    }

    static LocalRingtone file(const std::string& name) { return {name, "/x/y.m4r", "m4r", 7}; }
};

} // namespace

TEST_F(Change, AReplacementHasTheGuidOfWhatItReplaces) {
    OpenPhone phone({});
    replaceRingtones(phone.tones(), {file("Marimba"), file("Plain"), file("New")});
    const auto added = guids(phone.tones(), kAddedList);
    ASSERT_EQ(added.size(), 3U);
    EXPECT_EQ(added.at("Marimba"), "M");
    EXPECT_FALSE(added.at("Plain").empty()) << "one that had none gets one";
    EXPECT_FALSE(added.at("New").empty()) << "what the phone does not have is added";
    EXPECT_NE(added.at("Plain"), added.at("New"));
    EXPECT_EQ(guids(phone.tones(), kRemovedList),
              (std::map<std::string, std::string>{{"Marimba", "M"}, {"Plain", ""}}));
    EXPECT_THAT(guids(phone.tones(), kUnchangedList), ElementsAre(Pair("Harp", "H")));
}

TEST_F(Change, AReplacementByTheSameLeavesItAsItIs) {
    const std::string source = sourceText(digestOf("sound"), 5);
    put(kCataloguePath, "<plist><dict><key>Ringtones</key><dict><key>KDAQ.m4r</key><dict>"
                        "<key>Name</key><string>Marimba</string><key>TrackID</key>"
                        "<integer>1</integer><key>SourceDigest</key><string>" +
                            source + "</string></dict></dict></dict></plist>");
    OpenPhone phone({});
    LocalRingtone replacement = file("Marimba");
    replacement.source = digestOf("sound");
    replaceRingtones(phone.tones(), {replacement});
    EXPECT_THAT(guids(phone.tones(), kAddedList), IsEmpty());
    replacement.source = digestOf("another sound");
    replaceRingtones(phone.tones(), {replacement});
    EXPECT_THAT(guids(phone.tones(), kAddedList), ElementsAre(Key("Marimba")));
}

TEST_F(Change, OthersGoWhereverTheyCameFromOrStay) {
    OpenPhone phone({});
    const PhoneState state = readEverything(phone);
    makeHold(phone, state, {file("Marimba"), file("New")}, Others::Stay);
    EXPECT_THAT(guids(phone.tones(), kAddedList), ElementsAre(Key("Marimba"), Key("New")));
    EXPECT_THAT(guids(phone.tones(), kRemovedList), ElementsAre(Key("Marimba")));
    makeHold(phone, state, {file("New")});
    EXPECT_THAT(guids(phone.tones(), kAddedList), ElementsAre(Key("New")));
    EXPECT_THAT(guids(phone.tones(), kRemovedList),
                ElementsAre(Key("Harp"), Key("Marimba"), Key("Plain")));
}

TEST(SameRingtone, IsMadeOfTheSameOrAsLargeWhereNothingIsKnown) {
    LocalRingtone wanted{"Harp", "/x/harp.m4r", "m4r", 7, digestOf("harp")};
    PhoneRingtone there;
    there.size = 7;
    EXPECT_TRUE(isSame(there, wanted));
    EXPECT_FALSE(isMadeOf(there, wanted)) << "nothing is written down";
    there.source = sourceText(digestOf("lyre"), 7);
    EXPECT_FALSE(isSame(there, wanted)) << "another content, as large";
    there.source = sourceText(digestOf("harp"), 7);
    wanted.size = 0; // until it has been made
    EXPECT_TRUE(isSame(there, wanted));
    EXPECT_TRUE(isMadeOf(there, wanted));
    there.size = 6;
    EXPECT_FALSE(isSame(there, wanted)) << "it is not whole on the phone";
    EXPECT_FALSE(isMadeOf(there, wanted));
}

TEST_F(Change, ARenamedRingtoneStaysAndIsNeitherAddedNorRemoved) {
    OpenPhone phone({});
    const PhoneState state = readEverything(phone);
    const std::vector<PhoneRingtone> before = state.ringtones;
    renameRingtone(phone.tones(), "Harp", "Lyre");
    EXPECT_THAT(guids(phone.tones(), kAddedList), IsEmpty());
    EXPECT_THAT(guids(phone.tones(), kRemovedList), IsEmpty());
    const auto lists = phone.tones().generateChangeLists();
    const auto after = ringtonesOf(cf::dictionaryAt(lists.get(), kUnchangedList)).value();
    ASSERT_EQ(after.size(), before.size());
    for (const PhoneRingtone& ringtone : after) {
        const auto old = std::find_if(before.begin(), before.end(),
                                      [&](const auto& one) { return one.file == ringtone.file; });
        ASSERT_NE(old, before.end());
        EXPECT_EQ(ringtone.guid, old->guid);
        EXPECT_EQ(ringtone.type, old->type) << "an aiff's is \"iff\", however it came to the list";
        EXPECT_EQ(ringtone.size, old->size);
        EXPECT_EQ(ringtone.name, old->name == "Harp" ? "Lyre" : old->name);
    }
    const PreparedChange prepared = prepare(phone, state);
    EXPECT_THAT(prepared.renamed, ElementsAre(Pair("Harp", "Lyre")));
    EXPECT_THAT(prepared.plan.lost, IsEmpty());
    EXPECT_EQ(prepared.plan.uploadBytes, 0U);
    EXPECT_EQ(prepared.plan.count(Operation::Kind::Upload), 0U);
}

TEST_F(Change, SeveralRingtonesAreRenamedAtOnce) {
    OpenPhone phone({});
    const PhoneState state = readEverything(phone);
    renameRingtone(phone.tones(), "Harp", "Lyre");
    renameRingtone(phone.tones(), "Marimba", "Vibes");
    removeRingtones(phone.tones(), {"Plain"});
    EXPECT_EQ(guids(phone.tones(), kUnchangedList),
              (std::map<std::string, std::string>{{"Lyre", "H"}, {"Vibes", "M"}}));
    const PreparedChange prepared = prepare(phone, state);
    EXPECT_THAT(prepared.renamed,
                UnorderedElementsAre(Pair("Harp", "Lyre"), Pair("Marimba", "Vibes")));
    EXPECT_THAT(prepared.removed, ElementsAre("Plain"));
    EXPECT_THAT(prepared.plan.lost, IsEmpty());
}

} // namespace krl::engine
