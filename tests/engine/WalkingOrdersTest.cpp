// In which orders early firmware may come upon a ringtone and its placeholder.
#include "engine/repair/WalkingOrders.h"

#include <KRLVesk/KRLVesk.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

using testing::IsEmpty;
using namespace krl::engine;

namespace {

constexpr size_t kNameAndGuid = 2;
constexpr size_t kMore = 3;

/// Ringtones of these base names, each with its placeholder behind it.
std::vector<CatalogueEntry> withPlaceholders(const std::vector<std::string>& bases) {
    std::vector<CatalogueEntry> entries;
    for (const std::string& base : bases) {
        CatalogueEntry ringtone;
        ringtone.file = base + ".mp3";
        ringtone.guid = "guid of " + base;
        ringtone.keyCount = kMore;
        CatalogueEntry placeholder = ringtone;
        placeholder.file = base + ".m4r";
        placeholder.keyCount = kNameAndGuid;
        entries.push_back(ringtone);
        entries.push_back(placeholder);
    }
    return entries;
}

/// What the library's own check says of the catalogue in its order.
std::set<std::string> namesInTheWay(const std::vector<CatalogueEntry>& entries) {
    const auto catalogue = cf::dictionary();
    for (const CatalogueEntry& entry : entries) {
        const auto value = cf::dictionary();
        CFDictionarySetValue(value.get(), KRTFileKey, cf::string(entry.guid).get());
        CFDictionarySetValue(catalogue.get(), cf::string(entry.file).get(), value.get());
    }
    const auto names = cf::adopt(KRTRingtoneManagerIsValidFor111(catalogue.get()));
    std::set<std::string> result;
    for (CFIndex i = 0; names && i < CFArrayGetCount(names.get()); ++i) {
        result.insert(cf::text(cf::cast<CFStringRef>(CFArrayGetValueAtIndex(names.get(), i))));
    }
    return result;
}

std::vector<std::string> someBases(std::mt19937& random) {
    std::vector<std::string> bases;
    for (size_t count = 1 + random() % 12; count > 0; --count) {
        std::string base;
        for (int i = 0; i < 4; ++i) {
            base += static_cast<char>('A' + random() % 18);
        }
        bases.push_back(base);
    }
    return bases;
}

} // namespace

TEST(WalkingOrders, HaveAllThatTheLibrarysCheckFindsAndMore) {
    size_t more = 0;
    for (unsigned seed = 0; seed < 500; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const auto entries = withPlaceholders(someBases(random));
        const auto files = filesAheadOfPlaceholders(entries);
        const auto found = namesInTheWay(entries);
        EXPECT_TRUE(std::includes(files.begin(), files.end(), found.begin(), found.end()));
        more += files.size() > found.size() ? 1U : 0U;
    }
    EXPECT_GT(more, 0U) << "there are orders beside the catalogue's";
}

TEST(WalkingOrders, RingtonesWithoutPlaceholdersAreNeverInTheWay) {
    std::vector<CatalogueEntry> entries;
    for (const CatalogueEntry& entry : withPlaceholders({"KDAQ", "QJHE", "BQJH", "FHKM"})) {
        if (!entry.isPlaceholder()) {
            entries.push_back(entry);
        }
    }
    EXPECT_THAT(filesAheadOfPlaceholders(entries), IsEmpty());
    EXPECT_THAT(filesAheadOfPlaceholders({}), IsEmpty());
}
