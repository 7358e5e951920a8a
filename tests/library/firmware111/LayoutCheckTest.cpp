#include "library/firmware111/LayoutCheck.h"
#include "library/firmware111/FileNames.h"
#include "tests/library/firmware111/Strings.h"

#include <CoreFoundation/CFValues.h>
#include <KRLVesk/KRTDictionary.h>
#include <KRLVesk/KRTError.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using krl::cf::adopt;
using krl::cf::CFRef;
using krl::cf::makeDictionary;
using krl::cf::stringOf;
using krl::test::text;
using krl::test::unitsOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

using Names = std::vector<std::string>;

/// A catalogue, put together entry by entry.
class Catalogue {
public:
    Catalogue& add(const std::string& name, const std::string& guid) {
        return add(stringOf(name).get(), stringOf(guid).get());
    }

    Catalogue& add(CFStringRef name, CFTypeRef guid) {
        const auto info = makeDictionary();
        CFDictionarySetValue(info.get(), CFSTR("Name"), name);
        CFDictionarySetValue(info.get(), CFSTR("GUID"), guid);
        return addRaw(name, info.get());
    }

    Catalogue& addWithoutGuid(const std::string& name) {
        return addRaw(stringOf(name).get(), makeDictionary().get());
    }

    Catalogue& addRaw(CFTypeRef name, CFTypeRef info) {
        CFDictionarySetValue(entries_.get(), name, info);
        return *this;
    }

    CFDictionaryRef get() const { return entries_.get(); }

    /// No value when the catalogue is valid.
    std::optional<Names> namesInTheWay() const {
        const auto result = krl::namesInTheWay(entries_.get());
        if (!result) {
            return std::nullopt;
        }
        Names names;
        for (CFIndex i = 0; i < CFArrayGetCount(result.get()); ++i) {
            names.push_back(
                text(static_cast<CFStringRef>(CFArrayGetValueAtIndex(result.get(), i))));
        }
        return names;
    }

private:
    CFRef<CFMutableDictionaryRef> entries_ = makeDictionary();
};

/// Names in the order in which the firmware walks a dictionary of them.
Names inFirmwareOrder(const Names& names) {
    std::vector<CFRef<CFStringRef>> keys;
    KRTDictionary* const table =
        KRTDictionaryWithCapacity(std::max(static_cast<KRTWord>(names.size()), KRTWord{10}));
    for (const auto& name : names) {
        keys.push_back(stringOf(name));
        KRTDictionarySetObjectForKey(table, kCFBooleanTrue, keys.back().get());
    }
    std::vector<const void*> walked(names.size());
    std::vector<const void*> values(names.size());
    KRTDictionaryGetKeysAndValues(table, walked.data(), values.data());
    KRTDictionaryRelease(table);
    Names result;
    for (const void* key : walked) {
        result.push_back(text(static_cast<CFStringRef>(key)));
    }
    return result;
}

/// A base name of four letters with which the firmware meets these extensions in this order, be
/// they inserted in it or in the opposite one.
std::string baseMeeting(const Names& extensions) {
    for (int i = 0; i < 18 * 18 * 18; ++i) {
        const auto letter = [](int n) { return static_cast<char>('A' + n % 18); };
        const std::string base{'Q', letter(i), letter(i / 18), letter(i / 324)};
        Names names;
        for (const auto& extension : extensions) {
            names.push_back(base + "." + extension);
        }
        const Names reversed(names.rbegin(), names.rend());
        if (inFirmwareOrder(names) == names && inFirmwareOrder(reversed) == names) {
            return base;
        }
    }
    throw std::runtime_error("no base name of four letters will do");
}

// ---------------------------------------------------------------------------- valid catalogues

TEST(LayoutCheck, AnEmptyCatalogueIsValid) {
    EXPECT_EQ(Catalogue().namesInTheWay(), std::nullopt);
}

TEST(LayoutCheck, ShortM4rNamesWithGuidsOfTheirOwnAreValid) {
    Catalogue catalogue;
    for (const auto* name : {"ABCD.m4r", "EFGH.m4r", "IJKL.m4r", "A.m4r"}) {
        catalogue.add(name, std::string("guid of ") + name);
    }
    EXPECT_EQ(catalogue.namesInTheWay(), std::nullopt);
}

TEST(LayoutCheck, OneShortNameOfAnyExtensionToAGuidIsValid) {
    EXPECT_EQ(Catalogue().add("ABCD.mp3", "1").add("EFGH.wav", "2").namesInTheWay(), std::nullopt);
}

// ---------------------------------------------------------------------------- long names

TEST(LayoutCheck, ALongM4rNameIsReturnedAsItStands) {
    EXPECT_EQ(Catalogue().add("ABCDE.m4r", "1").add("Long name.m4r", "2").namesInTheWay(),
              inFirmwareOrder({"ABCDE.m4r", "Long name.m4r"}));
}

TEST(LayoutCheck, ALongNameOfAnotherEndingIsNotReturned) {
    Catalogue catalogue;
    catalogue.add("Long name.mp3", "1").add("LONGNAME.M4R", "2").add("Long.m4r.wav", "3");
    EXPECT_EQ(catalogue.namesInTheWay(), std::nullopt);
    catalogue.add("ABCDE.m4r", "4");
    EXPECT_EQ(catalogue.namesInTheWay(), Names{"ABCDE.m4r"});
}

TEST(LayoutCheck, TheEndingNeedsNoPoint) {
    EXPECT_EQ(Catalogue().add("LONGNAMEm4r", "1").namesInTheWay(), Names{"LONGNAMEm4r"});
}

TEST(LayoutCheck, EightUnitsAreShortAndNineAreLong) {
    EXPECT_EQ(Catalogue().add("ABCD.m4r", "1").namesInTheWay(), std::nullopt);
    EXPECT_EQ(Catalogue().add("ABCDE.m4r", "1").namesInTheWay(), Names{"ABCDE.m4r"});
}

TEST(LayoutCheck, LengthIsCountedInUtf16Units) {
    // 12 bytes, 8 units
    EXPECT_EQ(Catalogue().add("éééé.m4r", "1").namesInTheWay(), std::nullopt);
    // 6 characters, 8 units
    EXPECT_EQ(Catalogue().add("🎵🎵.m4r", "1").namesInTheWay(), std::nullopt);
    // 7 characters, 9 units
    EXPECT_EQ(Catalogue().add("🎵🎵a.m4r", "1").namesInTheWay(), Names{"🎵🎵a.m4r"});
}

TEST(LayoutCheck, LongNamesTakeNoPartInTheRuleAboutGuids) {
    Catalogue catalogue;
    catalogue.add("Long name.mp3", "1").add("ABCD.m4r", "1").add("Other name.wav", "1");
    EXPECT_EQ(catalogue.namesInTheWay(), std::nullopt);
}

// ---------------------------------------------------------------------------- GUIDs

TEST(LayoutCheck, AnotherExtensionMetFirstIsInTheWayOfTheM4r) {
    const std::string base = baseMeeting({"mp3", "m4r"});
    // The catalogue's own order makes no difference.
    EXPECT_EQ(Catalogue().add(base + ".mp3", "1").add(base + ".m4r", "1").namesInTheWay(),
              Names{base + ".mp3"});
    EXPECT_EQ(Catalogue().add(base + ".m4r", "1").add(base + ".mp3", "1").namesInTheWay(),
              Names{base + ".mp3"});
}

TEST(LayoutCheck, AnM4rMetFirstIsInNobodysWay) {
    const std::string base = baseMeeting({"m4r", "mp3"});
    EXPECT_EQ(Catalogue().add(base + ".mp3", "1").add(base + ".m4r", "1").namesInTheWay(),
              std::nullopt);
    EXPECT_EQ(Catalogue().add(base + ".m4r", "1").add(base + ".mp3", "1").namesInTheWay(),
              std::nullopt);
}

TEST(LayoutCheck, WhereTwoNamesMeetInOneSlotTheCataloguesOrderDecides) {
    const auto startSlot = [](const std::string& name) {
        return __KRTDictionaryScrambleHash(CFHash(stringOf(name).get())) % 16;
    };
    std::string base;
    for (int i = 1000; base.empty(); ++i) {
        const std::string candidate = std::to_string(i);
        const auto slot = startSlot(candidate + ".mp3");
        if (slot == startSlot(candidate + ".m4r") && slot != 15) {
            base = candidate;
        }
    }
    EXPECT_EQ(Catalogue().add(base + ".mp3", "1").add(base + ".m4r", "1").namesInTheWay(),
              Names{base + ".mp3"});
    EXPECT_EQ(Catalogue().add(base + ".m4r", "1").add(base + ".mp3", "1").namesInTheWay(),
              std::nullopt);
}

TEST(LayoutCheck, ThreeShortNamesOfAGuidGiveOneNameForEachLaterOne) {
    const std::string base = baseMeeting({"mp3", "m4r", "wav"});
    EXPECT_EQ(Catalogue()
                  .add(base + ".mp3", "1")
                  .add(base + ".m4r", "1")
                  .add(base + ".wav", "1")
                  .namesInTheWay(),
              (Names{base + ".mp3", base + ".mp3"}));
}

TEST(LayoutCheck, WhatIsReturnedIsTheLaterBaseWithTheFirstExtension) {
    const Names order = inFirmwareOrder({"ABCD.mp3", "EFGH.wav"});
    const std::string laterBase = order.at(1).substr(0, 4);
    const std::string firstExtension = order.at(0).substr(4);
    EXPECT_EQ(Catalogue().add("ABCD.mp3", "1").add("EFGH.wav", "1").namesInTheWay(),
              Names{laterBase + firstExtension});
}

TEST(LayoutCheck, OnlyTheFirstExtensionOfAGuidCounts) {
    const std::string base = baseMeeting({"wav", "m4r", "mp3"});
    // m4r, met second, does not clear the way for mp3.
    EXPECT_EQ(Catalogue()
                  .add(base + ".wav", "1")
                  .add(base + ".m4r", "1")
                  .add(base + ".mp3", "1")
                  .namesInTheWay(),
              (Names{base + ".wav", base + ".wav"}));
}

TEST(LayoutCheck, ExtensionsAreComparedExactly) {
    const std::string base = baseMeeting({"M4R", "mp3"});
    EXPECT_EQ(Catalogue().add(base + ".M4R", "1").add(base + ".mp3", "1").namesInTheWay(),
              Names{base + ".M4R"});
}

TEST(LayoutCheck, EqualGuidsNeedNotBeOneObject) {
    const std::string base = baseMeeting({"mp3", "m4r"});
    const auto one = adopt(CFStringCreateMutableCopy(nullptr, 0, CFSTR("GUID-1")));
    const auto other = adopt(CFStringCreateMutableCopy(nullptr, 0, CFSTR("GUID-1")));
    EXPECT_EQ(Catalogue()
                  .add(stringOf(base + ".mp3").get(), one.get())
                  .add(stringOf(base + ".m4r").get(), other.get())
                  .namesInTheWay(),
              Names{base + ".mp3"});
}

TEST(LayoutCheck, DifferentGuidsDoNotMeet) {
    const std::string base = baseMeeting({"mp3", "m4r"});
    EXPECT_EQ(Catalogue().add(base + ".mp3", "1").add(base + ".m4r", "2").namesInTheWay(),
              std::nullopt);
}

// ---------------------------------------------------------------------------- odd catalogues

TEST(LayoutCheck, AFirstNameWithoutExtensionIsNotRecorded) {
    // The extension that is recorded is that of the first name which has one.
    const std::string base = baseMeeting({"", "mp3", "m4r"}); // "QABC." has none
    EXPECT_EQ(Catalogue().add(base + ".", "1").add(base + ".mp3", "1").namesInTheWay(),
              std::nullopt);
    EXPECT_EQ(Catalogue()
                  .add(base + ".", "1")
                  .add(base + ".mp3", "1")
                  .add(base + ".m4r", "1")
                  .namesInTheWay(),
              Names{base + ".mp3"});
}

TEST(LayoutCheck, NamesThatNoFileCanHaveAreNoObstacle) {
    Catalogue catalogue;
    for (const auto* name :
         {"", ".", "..", "/", "//", ".m4r", "a.", "a.m 4r", "%41.m4r", "a/b.mp3"}) {
        catalogue.add(name, "1");
    }
    const UniChar loneSurrogate[] = {0xD800, '.', 'm', 'p', '3'};
    const auto unpaired = adopt(CFStringCreateWithCharacters(nullptr, loneSurrogate, 5));
    catalogue.add(unpaired.get(), CFSTR("2"));
    const auto names = catalogue.namesInTheWay();
    for (const auto& name : names.value_or(Names())) {
        EXPECT_THAT(name, Not(IsEmpty()));
    }
}

TEST(LayoutCheck, EntriesWithoutAGuidTakeNoPartInTheRuleAboutGuids) {
    const std::string base = baseMeeting({"mp3", "m4r"});
    Catalogue catalogue;
    catalogue.addWithoutGuid(base + ".mp3").addWithoutGuid(base + ".m4r");
    EXPECT_EQ(catalogue.namesInTheWay(), std::nullopt);
    catalogue.addWithoutGuid("Long name.m4r");
    EXPECT_EQ(catalogue.namesInTheWay(), Names{"Long name.m4r"});
}

TEST(LayoutCheck, EntriesThatAreNoDictionariesTakeNoPartInTheRuleAboutGuids) {
    Catalogue catalogue;
    catalogue.addRaw(CFSTR("ABCD.mp3"), CFSTR("a string"));
    catalogue.addRaw(CFSTR("ABCD.m4r"), kCFBooleanTrue);
    catalogue.addRaw(CFSTR("EFGH.m4r"), adopt(CFDataCreate(nullptr, nullptr, 0)).get());
    EXPECT_EQ(catalogue.namesInTheWay(), std::nullopt);
    catalogue.addRaw(CFSTR("ABCDE.m4r"), CFSTR("a string"));
    EXPECT_EQ(catalogue.namesInTheWay(), Names{"ABCDE.m4r"});
}

TEST(LayoutCheck, AGuidMayBeAnyObject) {
    const std::string base = baseMeeting({"mp3", "m4r"});
    EXPECT_EQ(Catalogue()
                  .add(stringOf(base + ".mp3").get(), kCFBooleanTrue)
                  .add(stringOf(base + ".m4r").get(), kCFBooleanTrue)
                  .namesInTheWay(),
              Names{base + ".mp3"});
}

TEST(LayoutCheck, KeysThatAreNoStringsArePassedOver) {
    Catalogue catalogue;
    catalogue.addRaw(kCFBooleanTrue, makeDictionary().get());
    catalogue.add("ABCDE.m4r", "1");
    EXPECT_EQ(catalogue.namesInTheWay(), Names{"ABCDE.m4r"});
}

// ---------------------------------------------------------------------------- manners

TEST(LayoutCheck, LeavesTheCatalogueAndTheErrorRecordAlone) {
    KRTErrorClear();
    Catalogue catalogue;
    catalogue.add("ABCDE.m4r", "1").add("ABCD.mp3", "2").add("ABCD.m4r", "2");
    const auto copy = adopt(CFDictionaryCreateCopy(nullptr, catalogue.get()));
    EXPECT_NE(catalogue.namesInTheWay(), std::nullopt);
    EXPECT_TRUE(CFEqual(copy.get(), catalogue.get()));
    EXPECT_FALSE(KRTError());
    EXPECT_EQ(KRTErrorGetFile(), nullptr);
}

TEST(LayoutCheck, TheResultOutlivesTheCatalogue) {
    CFRef<CFMutableArrayRef> result;
    {
        Catalogue catalogue;
        catalogue.add("ABCDE.m4r", "1");
        result = krl::namesInTheWay(catalogue.get());
    }
    ASSERT_TRUE(result);
    CFArrayAppendValue(result.get(), CFSTR("mutable"));
    EXPECT_EQ(CFArrayGetCount(result.get()), 2);
    EXPECT_EQ(text(static_cast<CFStringRef>(CFArrayGetValueAtIndex(result.get(), 0))), "ABCDE.m4r");
}

TEST(LayoutCheck, LooksAtEveryEntryOfALargeCatalogue) {
    Catalogue catalogue;
    std::set<std::string> offending;
    for (int i = 0; i < 15000; ++i) {
        const std::string number = std::to_string(i);
        if (i % 3 == 0) {
            catalogue.add("LONG" + number + ".m4r", number);
            offending.insert("LONG" + number + ".m4r");
        } else {
            catalogue.add(number + ".mp3", number);
        }
    }
    const auto names = catalogue.namesInTheWay();
    ASSERT_TRUE(names);
    EXPECT_EQ(names->size(), offending.size());
    EXPECT_EQ(std::set<std::string>(names->begin(), names->end()), offending);
}

// ---------------------------------------------------------------------------- against a model

std::optional<std::u16string> copyUnits(const CFRef<CFStringRef>& string) {
    return string ? std::optional(unitsOf(string.get())) : std::nullopt;
}

CFRef<CFURLRef> urlOf(CFStringRef name) {
    return adopt(CFURLCreateWithFileSystemPath(nullptr, name, kCFURLPOSIXPathStyle, false));
}

std::optional<std::u16string> extensionByURL(CFStringRef name) {
    const auto url = urlOf(name);
    return url ? copyUnits(adopt(CFURLCopyPathExtension(url.get()))) : std::nullopt;
}

/// The keys in the order of the firmware's own table.
std::vector<CFStringRef> orderOfTable(CFDictionaryRef catalogue) {
    const auto count = static_cast<size_t>(CFDictionaryGetCount(catalogue));
    std::vector<const void*> keys(count);
    std::vector<const void*> infos(count);
    CFDictionaryGetKeysAndValues(catalogue, keys.data(), infos.data());
    KRTDictionary* const table =
        KRTDictionaryWithCapacity(std::max(static_cast<KRTWord>(count), KRTWord{10}));
    for (size_t i = 0; i < count; ++i) {
        KRTDictionarySetObjectForKey(table, infos[i], keys[i]);
    }
    KRTDictionaryGetKeysAndValues(table, keys.data(), infos.data());
    KRTDictionaryRelease(table);
    std::vector<CFStringRef> order;
    for (const void* key : keys) {
        order.push_back(static_cast<CFStringRef>(key));
    }
    return order;
}

/// The rules once more, over the whole catalogue and by URLs alone.
std::vector<std::u16string> namesByTheRules(CFDictionaryRef catalogue) {
    std::vector<std::u16string> result;
    std::map<std::u16string, CFRef<CFStringRef>> extensions;
    for (CFStringRef name : orderOfTable(catalogue)) {
        if (CFStringGetLength(name) >= 9) {
            if (CFStringHasSuffix(name, CFSTR("m4r"))) {
                result.push_back(unitsOf(name));
            }
            continue;
        }
        const auto info = static_cast<CFDictionaryRef>(CFDictionaryGetValue(catalogue, name));
        const auto guid = static_cast<CFStringRef>(CFDictionaryGetValue(info, CFSTR("GUID")));
        const auto url = urlOf(name);
        auto& first = extensions[unitsOf(guid)];
        if (!first) {
            first = url ? adopt(CFURLCopyPathExtension(url.get())) : nullptr;
        } else if (unitsOf(first.get()) != u"m4r" && url) {
            const auto base = adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
            const auto other =
                adopt(CFURLCreateCopyAppendingPathExtension(nullptr, base.get(), first.get()));
            result.push_back(unitsOf(adopt(CFURLCopyLastPathComponent(other.get())).get()));
        }
    }
    return result;
}

class RandomNames {
public:
    explicit RandomNames(unsigned seed) : random_(seed) {}

    unsigned upTo(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

    CFRef<CFStringRef> next() {
        static const std::vector<std::u16string> pieces = {
            u"a", u"B",  u"7",  u".",      u".",       u".m4r",   u".mp3",      u"m4r", u"-",
            u"_", u" ",  u"/",  u"%",      u"%41",     u"#",      u"?",         u";",   u":",
            u"~", u"\\", u"\n", u"\u00E9", u"e\u0301", u"\u200F", u"\U0001F3B5"};
        std::u16string name;
        for (unsigned left = upTo(7); left > 0; --left) {
            // Half of the names are plain ones.
            name += pieces[upTo(isPlain_ ? 8 : static_cast<unsigned>(pieces.size()))];
        }
        isPlain_ = !isPlain_;
        return adopt(CFStringCreateWithCharacters(nullptr,
                                                  reinterpret_cast<const UniChar*>(name.data()),
                                                  static_cast<CFIndex>(name.size())));
    }

private:
    std::mt19937 random_;
    bool isPlain_ = false;
};

TEST(LayoutCheck, PartsOfNamesAreThoseOfURLs) {
    RandomNames names(112);
    for (int i = 0; i < 20000; ++i) {
        const auto name = names.next();
        const auto url = urlOf(name.get());
        if (!url) {
            continue;
        }
        const krl::FileName parts = krl::splitPath(name.get());
        const auto stripped = adopt(CFURLCreateCopyDeletingPathExtension(nullptr, url.get()));
        ASSERT_EQ(copyUnits(parts.whole), copyUnits(adopt(CFURLCopyLastPathComponent(url.get()))));
        ASSERT_EQ(copyUnits(parts.base),
                  copyUnits(adopt(CFURLCopyLastPathComponent(stripped.get()))));
        ASSERT_EQ(unitsOf(parts.extension.get()), extensionByURL(name.get()).value_or(u""));
    }
}

TEST(LayoutCheck, ExtensionsAreThoseOfURLs) {
    const unsigned seed = 111;
    std::cout << "seed " << seed << "\n";
    RandomNames names(seed);
    int withExtension = 0;
    for (int i = 0; i < 50000; ++i) {
        const auto name = names.next();
        const auto expected = extensionByURL(name.get());
        ASSERT_EQ(copyUnits(krl::fileNameExtension(name.get())), expected) << text(name.get());
        withExtension += expected.has_value();
    }
    EXPECT_GT(withExtension, 10000);
}

TEST(LayoutCheck, DoesWhatTheRulesSayByURLsAlone) {
    const unsigned seed = 1011;
    std::cout << "seed " << seed << "\n";
    RandomNames names(seed);
    int inTheWay = 0;
    for (int round = 0; round < 300; ++round) {
        Catalogue catalogue;
        for (unsigned left = names.upTo(60); left > 0; --left) {
            const auto name = names.next();
            const int guid = static_cast<int>(names.upTo(15));
            catalogue.add(name.get(), stringOf(std::to_string(guid)).get());
        }

        const auto expected = namesByTheRules(catalogue.get());
        inTheWay += static_cast<int>(expected.size());

        const auto result = krl::namesInTheWay(catalogue.get());
        std::vector<std::u16string> reported;
        for (CFIndex i = 0; result && i < CFArrayGetCount(result.get()); ++i) {
            reported.push_back(
                unitsOf(static_cast<CFStringRef>(CFArrayGetValueAtIndex(result.get(), i))));
        }
        ASSERT_EQ(reported, expected) << "round " << round;
        ASSERT_EQ(result.get() == nullptr, expected.empty());
    }
    EXPECT_GT(inTheWay, 300);
}

/// A catalogue that changes, and a check that is told of it.
class ChangingCatalogue {
public:
    explicit ChangingCatalogue(unsigned seed, unsigned count) : random_(seed), names_(seed) {
        for (unsigned i = 0; i < count; ++i) {
            set(names_.next());
        }
    }

    void change() {
        const std::vector<CFStringRef> keys = orderOfTable(entries_.get());
        if (keys.empty() || random_() % 2 == 0) {
            const auto name = names_.next();
            set(name);
            check.entryPut(name.get(), CFDictionaryGetValue(entries_.get(), name.get()));
        } else {
            const auto name = krl::cf::retain(keys[random_() % keys.size()]);
            CFDictionaryRemoveValue(entries_.get(), name.get());
            check.entryTaken(name.get());
        }
    }

    std::vector<std::u16string> reported() {
        std::vector<std::u16string> names;
        for (const auto& name : check.namesInTheWay()) {
            names.push_back(unitsOf(name.get()));
        }
        return names;
    }

    CFDictionaryRef get() const { return entries_.get(); }

private:
    void set(const CFRef<CFStringRef>& name) {
        const auto info = makeDictionary();
        CFDictionarySetValue(info.get(), CFSTR("GUID"),
                             stringOf(std::to_string(random_() % 15)).get());
        CFDictionarySetValue(entries_.get(), name.get(), info.get());
    }

    std::mt19937 random_;
    RandomNames names_;
    CFRef<CFMutableDictionaryRef> entries_ = makeDictionary();

public:
    krl::LayoutCheck check{entries_.get()};
};

TEST(LayoutCheck, FollowsChangesAsIfItReadTheWholeCatalogueAnew) {
    const unsigned seed = 2024;
    std::cout << "seed " << seed << "\n";
    int changedAnswers = 0;
    for (unsigned round = 0; round < 60; ++round) {
        // Below and above the numbers at which the firmware's table gets more slots.
        ChangingCatalogue catalogue(seed + round, round);
        std::vector<std::u16string> before;
        for (int step = 0; step < 60; ++step) {
            const auto expected = namesByTheRules(catalogue.get());
            ASSERT_EQ(catalogue.reported(), expected) << "round " << round << ", step " << step;
            changedAnswers += expected != before;
            before = expected;
            for (int changes = step % 4; changes >= 0; --changes) {
                catalogue.change();
            }
        }
    }
    EXPECT_GT(changedAnswers, 500);
}

TEST(LayoutCheck, FollowsTheMovesOfALargeCatalogueOfCompanions) {
    auto catalogue = makeDictionary();
    const auto put = [&](const std::string& name, const std::string& guid) {
        const auto info = makeDictionary();
        CFDictionarySetValue(info.get(), CFSTR("GUID"), stringOf(guid).get());
        CFDictionarySetValue(catalogue.get(), stringOf(name).get(), info.get());
    };
    for (int i = 1000; i < 2000; ++i) {
        put(std::to_string(i) + ".mp3", std::to_string(i));
        put(std::to_string(i) + ".m4r", std::to_string(i));
    }
    krl::LayoutCheck check(catalogue.get());
    std::mt19937 random(3);
    for (int step = 0; step < 40; ++step) {
        std::vector<std::u16string> reported;
        for (const auto& name : check.namesInTheWay()) {
            reported.push_back(unitsOf(name.get()));
        }
        ASSERT_EQ(reported, namesByTheRules(catalogue.get())) << "step " << step;
        for (const char* extension : {".mp3", ".m4r"}) {
            const auto name =
                stringOf(std::to_string(1000 + random() % 1000) + std::string(extension));
            const auto entry = krl::cf::retain(CFDictionaryGetValue(catalogue.get(), name.get()));
            CFDictionaryRemoveValue(catalogue.get(), name.get());
            check.entryTaken(name.get());
            const auto newName = stringOf(std::to_string(5000 + step) + extension);
            if (entry) {
                CFDictionarySetValue(catalogue.get(), newName.get(), entry.get());
                check.entryPut(newName.get(), entry.get());
            }
        }
    }
}

} // namespace
