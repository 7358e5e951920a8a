// Ringtones of a phone that is put right, told apart.
#include "engine/repair/FoundRingtone.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using testing::ElementsAre;

namespace krl::engine::testing {
namespace {

std::vector<std::string> namesOf(const std::vector<std::string>& given) {
    std::vector<FoundRingtone> ringtones;
    for (const std::string& name : given) {
        ringtones.push_back(
            {"FILE" + std::to_string(ringtones.size()) + ".m4r", name, name, cf::dictionary()});
    }
    tellApart(ringtones, /*olderLayout=*/true);
    std::vector<std::string> names;
    for (const FoundRingtone& ringtone : ringtones) {
        EXPECT_EQ(cf::textAt(ringtone.entry.get(), KRTRingtoneName), ringtone.name);
        names.push_back(ringtone.name);
    }
    return names;
}

} // namespace

TEST(FoundRingtones, OfOneNameAreNumbered) {
    EXPECT_THAT(namesOf({"Harp", "Bell", "Harp", "Harp"}),
                ElementsAre("Harp", "Bell", "Harp (2)", "Harp (3)"));
}

TEST(FoundRingtones, KeepNamesThatLookLikeNumberedOnes) {
    EXPECT_THAT(namesOf({"Harp", "Harp (2)", "Harp", "Harp (2)", "Harp"}),
                ElementsAre("Harp", "Harp (2)", "Harp (3)", "Harp (2) (2)", "Harp (4)"));
}

TEST(FoundRingtones, WithoutANameHaveThatOfTheirFile) {
    EXPECT_THAT(namesOf({""}), ElementsAre("FILE0"));
}

TEST(FoundRingtones, OfOneNameMayBeAsManyAsACatalogueHolds) {
    const std::vector<std::string> names = namesOf(std::vector<std::string>(50000, "Harp"));
    EXPECT_EQ(names.front(), "Harp");
    EXPECT_EQ(names.back(), "Harp (50000)");
}

} // namespace krl::engine::testing
