// What thousands of ringtones cost, counted in hashes, comparisons and array elements searched:
// numbers that no machine changes.
#include "tests/library/store/StoreTest.h"
#include "tests/library/store/WrappedCalls.h"

namespace {

class StoreCost : public StoreTest {
protected:
    StoreCost() {
        setFirmware("1.1.1");
        WrappedCalls::reset();
    }

    ~StoreCost() override { WrappedCalls::reset(); }

    /// Ringtones of which every second one is an mp3.
    static std::vector<Tone> mixed(int count) {
        std::vector<Tone> tones;
        for (int i = 0; i < count; ++i) {
            tones.push_back(newTone("tone " + std::to_string(i), i % 2 == 0 ? "mp3" : "m4r"));
        }
        return tones;
    }

    /// The same on the phone, all with names too long for its firmware.
    static std::vector<Tone> mixedWithLongNames(int count) {
        std::vector<Tone> tones;
        for (int i = 0; i < count; ++i) {
            const std::string name = "tone " + std::to_string(i);
            tones.push_back(toneOnPhone(name, "Long " + name + (i % 2 == 0 ? ".mp3" : ".m4r"))
                                .with("LocalPath", "/x"));
        }
        return tones;
    }

    /// On the phone under long names that differ where CFHash does not look.
    static std::vector<Tone> withOneHash(int count) {
        std::vector<Tone> tones;
        for (int i = 0; i < count; ++i) {
            const std::string name = "tone " + std::to_string(i);
            const std::string fileName = std::string(40, 'a') + std::to_string(100000 + i) +
                                         std::string(350, 'b') + (i % 2 == 0 ? ".mp3" : ".m4r");
            tones.push_back(toneOnPhone(name, fileName).with("LocalPath", "/x"));
        }
        return tones;
    }

    uint64_t costOf(const std::function<void()>& work) {
        WrappedCalls::cost = 0;
        work();
        return WrappedCalls::cost;
    }

    uint64_t costOfGeneration(const std::vector<Tone>& added, const std::vector<Tone>& unchanged) {
        const auto addedList = listOf(added);
        const auto unchangedList = listOf(unchanged);
        CFRef<CFMutableDictionaryRef> catalogue;
        CFRef<CFMutableDictionaryRef> renames;
        return costOf([&] {
            EXPECT_EQ(KRTRingtoneManagerGeneratePList(manager, addedList.get(), nullptr,
                                                      unchangedList.get(), catalogue.receive(),
                                                      renames.receive()),
                      1);
        });
    }

    /// The generation for one mp3 more on a phone on which as many as that were put at once.
    uint64_t costOfOneMore(int count) {
        std::vector<Tone> tones;
        for (int i = 0; i < count; ++i) {
            tones.push_back(newTone("tone " + std::to_string(i), "mp3"));
        }
        CFRef<CFMutableDictionaryRef> catalogue;
        CFRef<CFMutableDictionaryRef> renames;
        EXPECT_EQ(KRTRingtoneManagerGeneratePList(manager, listOf(tones).get(), nullptr, nullptr,
                                                  catalogue.receive(), renames.receive()),
                  1);
        std::vector<Tone> onPhone;
        for (const auto& [fileName, entry] : pairsIn(catalogue.get())) {
            if (fileName.ends_with(".mp3")) {
                const auto name = valueOf(static_cast<CFDictionaryRef>(entry), "Name");
                onPhone.push_back(toneOnPhone(textOf(name), fileName));
            }
        }
        EXPECT_EQ(onPhone.size(), tones.size());
        WrappedCalls::withoutPhone = true;
        return costOfGeneration({newTone("one more", "mp3")}, onPhone);
    }

    uint64_t costOfFix(int count) {
        srandom(0);
        std::vector<std::pair<std::string, Tone>> entries;
        std::vector<std::string> baseNames;
        for (int i = 0; i < count; ++i) {
            const std::string name = "Long name " + std::to_string(i);
            entries.emplace_back(name + ".m4r", companionOf(name));
            baseNames.push_back(name);
        }
        const auto catalogue = catalogueOf(entries);
        const auto names = arrayOf(baseNames);
        const auto renames = emptyDictionary();
        const uint64_t cost = costOf([&] {
            EXPECT_EQ(KRTRingtoneManagerFixResultDictionary(catalogue.get(), names.get(),
                                                            renames.get(), nullptr),
                      1);
        });
        EXPECT_EQ(CFArrayGetCount(names.get()), count);
        return cost;
    }

    /// A submit in which everything moves, everything is removed once more, and the folder is full
    /// of strays.
    uint64_t costOfSubmit(int count) {
        const auto added = listOf({});
        const auto removed = listOf(mixedWithLongNames(count));
        const auto unchanged = listOf(mixedWithLongNames(count));
        WrappedCalls::withoutPhone = true;
        WrappedCalls::listingCount = count;
        return costOf([&] {
            EXPECT_EQ(KRTRingtoneManagerSubmitChanges(manager, added.get(), removed.get(),
                                                      unchanged.get()),
                      1);
        });
    }

    /// Ten times the ringtones may cost ten times as much, and a little more for the few more
    /// attempts that a larger layout takes; quadratic work would cost a hundred times as much.
    static void expectAlmostLinear(uint64_t ofThousand, uint64_t ofTenThousand) {
        EXPECT_GT(ofThousand, 1000u) << "the work is not counted";
        EXPECT_LT(ofTenThousand, 20 * ofThousand);
    }
};

TEST_F(StoreCost, GeneratingTheOlderLayoutGrowsWithTheNumberOfNewRingtones) {
    expectAlmostLinear(costOfGeneration(mixed(1000), {}), costOfGeneration(mixed(10000), {}));
}

TEST_F(StoreCost, GeneratingTheOlderLayoutGrowsWithTheNumberOfUnchangedRingtones) {
    WrappedCalls::withoutPhone = true;
    expectAlmostLinear(costOfGeneration({}, mixedWithLongNames(1000)),
                       costOfGeneration({}, mixedWithLongNames(10000)));
}

TEST_F(StoreCost, FixingGrowsWithTheNumberOfEntries) {
    expectAlmostLinear(costOfFix(1000), costOfFix(10000));
}

TEST_F(StoreCost, OneRingtoneMoreGrowsWithThoseThatAreThere) {
    // Each of the names that were rejected for those that are there is tried for the new one.
    expectAlmostLinear(costOfOneMore(500), costOfOneMore(5000));
}

TEST_F(StoreCost, NamesThatAllHaveOneHashCostNoMoreThanOthers) {
    WrappedCalls::withoutPhone = true;
    expectAlmostLinear(costOfGeneration({}, withOneHash(500)),
                       costOfGeneration({}, withOneHash(5000)));
}

TEST_F(StoreCost, AnAttemptThatMovesNothingIsNotMadeAgain) {
    const auto catalogue =
        catalogueOf({{"AAAA.mp3", companionOf("A")}, {"BBBB.wav", companionOf("A")}});
    const auto names = arrayOf({});
    const auto renames = emptyDictionary();
    const uint64_t cost = costOf([&] {
        EXPECT_EQ(KRTRingtoneManagerFixResultDictionary(catalogue.get(), names.get(), renames.get(),
                                                        nullptr),
                  0);
    });
    EXPECT_LT(cost, 100u) << "10,000 attempts cost at least as much as that each";
    EXPECT_EQ(recordedCode(), 0);
}

TEST_F(StoreCost, SubmittingGrowsWithTheNumberOfMovesRemovalsAndFiles) {
    expectAlmostLinear(costOfSubmit(1000), costOfSubmit(10000));
    EXPECT_EQ(WrappedCalls::tonesSearched, 0) << "a walk through the list for each rename";
}

TEST_F(StoreCost, TheDrawsOfAGenerationAreFewerThanFourNamesARingtone) {
    costOfGeneration(mixed(10000), {});
    // Count how far the generator has come.
    const long next = random();
    srandom(0);
    int draws = 0;
    while (random() != next) {
        ++draws;
        ASSERT_LT(draws, 4 * 4 * 10000);
    }
    // One name each, about one move more for every mp3, and the names that were in use.
    EXPECT_GT(draws, 4 * 10000);
}

} // namespace
