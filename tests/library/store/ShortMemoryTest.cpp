// Memory that runs out in the store, at each allocation in turn.
#include "tests/library/store/StoreTest.h"
#include "tests/support/Shortage.h"

#include <MobileDevice/Provider.h>

namespace {

using krl::test::Failing;
using krl::test::isShort;
using krl::test::WithPlenty;

/// The phone itself is never short of memory.
struct PhoneWithPlenty {
#define KRL_WITH_PLENTY(function) WithPlenty<::function> function##WithPlenty;
    MOBILEDEVICE_REQUIRED_FUNCTIONS(KRL_WITH_PLENTY)
#undef KRL_WITH_PLENTY
};

class ShortMemory : public ::testing::TestWithParam<Failing> {
protected:
    /// Does something with each allocation failing in turn, until none does any more.
    /// @param check  told whether memory was short
    void sweep(const std::function<void()>& action, const std::function<void(bool)>& check) {
        bool wasShort = true;
        size_t allocations = 0;
        for (; wasShort && !HasFatalFailure(); ++allocations) {
            SCOPED_TRACE("allocation " + std::to_string(allocations));
            wasShort = isShort(GetParam(), allocations, action);
            check(wasShort);
        }
        EXPECT_GT(allocations, 20U);
    }
};

/// A phone with ringtones, one of which a new layout moves.
class FilledStore : public Store {
public:
    FilledStore() : Store("1.1.1") {
        putCatalogue({{"ABCD.m4r", entryOf("first")},
                      {"A name that is too long.m4r", entryOf("moved")},
                      {"EFGH.mp3", entryOf("last")},
                      {"EFGH.m4r", companionOf("last")}});
        tones = {putTone("first", "ABCD.m4r", "first bytes"),
                 putTone("moved", "A name that is too long.m4r", "moved bytes"),
                 putTone("last", "EFGH.mp3", "last bytes")};
        fake.phone().file(kFolder + "/EFGH.m4r", "");
    }

    std::vector<Tone> tones;

private:
    static Tone entryOf(std::string_view name) { return companionOf(name).with("TrackID", "1"); }
};

TEST_P(ShortMemory, InALoadGivesNoListThatLacksRingtones) {
    FilledStore store;
    const PhoneWithPlenty phone;
    const Table whole = store.loaded();
    ASSERT_THAT(whole, ::testing::SizeIs(3));
    const Counts after = store.counts();
    CFMutableDictionaryRef list = nullptr;
    sweep(
        [&] {
            KRTErrorClear();
            list = KRTRingtoneManagerLoadCurrentRingtoneList(store.manager);
        },
        [&](bool wasShort) {
            const auto owner = adopt(list);
            ASSERT_EQ(owner == nullptr, wasShort);
            if (owner) {
                EXPECT_EQ(tableOf(owner.get()), whole);
            } else {
                EXPECT_TRUE(recordedCode());
            }
            EXPECT_EQ(store.counts(), after);
        });
}

TEST_P(ShortMemory, InAGenerationIsAFailureThatMakesNothing) {
    FilledStore store;
    const PhoneWithPlenty phone;
    const auto unchanged = listOf(store.tones);
    const auto added = listOf({newTone("a", "mp3"), newTone("b", "m4r"), newTone("c", "wav")});
    CFMutableDictionaryRef catalogue = nullptr;
    CFMutableDictionaryRef renames = nullptr;
    int result = 0;
    sweep(
        [&] {
            KRTErrorClear();
            catalogue = renames = nullptr;
            result = KRTRingtoneManagerGeneratePList(store.manager, added.get(), nullptr,
                                                     unchanged.get(), &catalogue, &renames);
        },
        [&](bool wasShort) {
            const auto catalogueOwner = adopt(catalogue);
            const auto renamesOwner = adopt(renames);
            ASSERT_EQ(result, wasShort ? 0 : 1);
            EXPECT_EQ(catalogueOwner == nullptr, wasShort);
            EXPECT_EQ(renamesOwner == nullptr, wasShort);
            EXPECT_EQ(recordedCode().has_value(), wasShort);
        });
}

TEST_P(ShortMemory, InASubmitIsAFailureThatLosesNoFileThatStays) {
    const LocalFiles local;
    const std::string source = local.file("new.mp3", "new bytes");
    size_t failures = 0;
    bool wasShort = true;
    for (size_t allocations = 0; wasShort && !HasFatalFailure(); ++allocations) {
        SCOPED_TRACE("allocation " + std::to_string(allocations));
        FilledStore store;
        const PhoneWithPlenty phone;
        const auto added = listOf({newTone("new", "mp3").with("LocalPath", source)});
        const auto removed = listOf({store.tones[0]});
        const auto unchanged = listOf({store.tones[1], store.tones[2]});
        store.openPhone();
        int result = 0;
        KRTErrorClear();
        wasShort = isShort(GetParam(), allocations, [&] {
            result = KRTRingtoneManagerSubmitChanges(store.manager, added.get(), removed.get(),
                                                     unchanged.get());
        });
        // A folder that cannot be listed at the end, for whatever reason, is not tidied up.
        ASSERT_TRUE(result == 1 || wasShort);
        std::vector<std::string> contents;
        for (const std::string& name : store.filesOnPhone()) {
            contents.push_back(store.contentsOnPhone(name));
        }
        EXPECT_THAT(contents, Contains("moved bytes"));
        EXPECT_THAT(contents, Contains("last bytes"));
        failures += result == 0 ? 1 : 0;
        if (result == 1) {
            EXPECT_THAT(contents, Contains("new bytes"));
            EXPECT_THAT(contents, Not(Contains("first bytes")));
        }
        EXPECT_TRUE(!wasShort || recordedCode());
    }
    EXPECT_GT(failures, 100U);
}

INSTANTIATE_TEST_SUITE_P(Failing, ShortMemory,
                         ::testing::Values(Failing::Once, Failing::FromThenOn));

} // namespace
