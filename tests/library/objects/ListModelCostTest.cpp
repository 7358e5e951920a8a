// What the working list costs: the steps of dictionary and string work, counted, grow with the
// number of ringtones and not with its square. The build puts the counting functions below in place
// of the real ones.

#include "tests/library/objects/ObjectTest.h"

#include <cstdint>
#include <functional>

namespace {

uint64_t steps = 0;

void countWalk(CFDictionaryRef dictionary) {
    steps += static_cast<uint64_t>(CFDictionaryGetCount(dictionary));
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker asks for.
#define COUNT_ONE_STEP(result, name, parameters, arguments)                                        \
    extern "C" result __real_##name parameters;                                                    \
    extern "C" result __wrap_##name parameters {                                                   \
        ++steps;                                                                                   \
        return __real_##name arguments;                                                            \
    }

COUNT_ONE_STEP(const void*, CFDictionaryGetValue, (CFDictionaryRef d, const void* k), (d, k))
COUNT_ONE_STEP(Boolean, CFDictionaryContainsKey, (CFDictionaryRef d, const void* k), (d, k))
COUNT_ONE_STEP(void, CFDictionarySetValue, (CFMutableDictionaryRef d, const void* k, const void* v),
               (d, k, v))
COUNT_ONE_STEP(void, CFDictionaryRemoveValue, (CFMutableDictionaryRef d, const void* k), (d, k))
COUNT_ONE_STEP(Boolean, CFEqual, (CFTypeRef a, CFTypeRef b), (a, b))
COUNT_ONE_STEP(void, CFArrayAppendValue, (CFMutableArrayRef a, const void* v), (a, v))

extern "C" void __real_CFDictionaryGetKeysAndValues(CFDictionaryRef d, const void** k,
                                                    const void** v);

extern "C" void __wrap_CFDictionaryGetKeysAndValues(CFDictionaryRef d, const void** k,
                                                    const void** v) {
    countWalk(d);
    __real_CFDictionaryGetKeysAndValues(d, k, v);
}

extern "C" void __real_CFDictionaryRemoveAllValues(CFMutableDictionaryRef d);

extern "C" void __wrap_CFDictionaryRemoveAllValues(CFMutableDictionaryRef d) {
    countWalk(d);
    __real_CFDictionaryRemoveAllValues(d);
}

extern "C" CFMutableDictionaryRef __real_CFDictionaryCreateMutableCopy(CFAllocatorRef a, CFIndex c,
                                                                       CFDictionaryRef d);

extern "C" CFMutableDictionaryRef __wrap_CFDictionaryCreateMutableCopy(CFAllocatorRef a, CFIndex c,
                                                                       CFDictionaryRef d) {
    countWalk(d);
    return __real_CFDictionaryCreateMutableCopy(a, c, d);
}

// NOLINTEND(bugprone-reserved-identifier)

namespace {

using namespace krl::test;
using krl::cf::CFRef;

std::string toneName(size_t i) {
    return "Tone number " + std::to_string(i);
}

class ListModelCost : public ObjectTest, public testing::WithParamInterface<size_t> {
protected:
    void SetUp() override {
        for (size_t i = 0; i < count; ++i) {
            names.push_back(str(toneName(i)));
            records.push_back(record({toneName(i)}));
        }
        tones = makePhone()->ringtoneManager();
    }

    void addAll() {
        for (const Record& each : records) {
            tones->addRingtone(each.get());
        }
    }

    /// Makes all ringtones kept ones.
    void keepAll() {
        std::vector<Entry> entries;
        for (size_t i = 0; i < count; ++i) {
            entries.push_back({std::to_string(i) + ".m4r", toneName(i)});
        }
        catalogue = parsedCatalogue(entries);
        tones->updateRingtoneListFromList(catalogue.get());
    }

    CFIndex countOf(CFStringRef list) {
        return CFDictionaryGetCount(static_cast<CFDictionaryRef>(
            CFDictionaryGetValue(tones->generateChangeLists().get(), list)));
    }

    /// Steps that the action takes for each ringtone.
    double stepsEach(const std::function<void()>& action) {
        steps = 0;
        action();
        return static_cast<double>(steps) / static_cast<double>(count);
    }

    const size_t count = GetParam();
    std::vector<CFRef<CFStringRef>> names;
    std::vector<Record> records;
    Record catalogue;
    std::shared_ptr<KRTRingtoneManager> tones;
};

/// More than any of these takes, and far below what one walk through the list a ringtone would
/// take.
constexpr double kFewSteps = 60;

TEST_P(ListModelCost, Adding) {
    EXPECT_LT(stepsEach([this] { addAll(); }), kFewSteps);
    EXPECT_EQ(countOf(CFSTR("added")), static_cast<CFIndex>(count));
}

TEST_P(ListModelCost, ReplacingKeptOnes) {
    keepAll();
    EXPECT_LT(stepsEach([this] { addAll(); }), kFewSteps);
    EXPECT_EQ(countOf(CFSTR("removed")), static_cast<CFIndex>(count));
}

TEST_P(ListModelCost, Removing) {
    keepAll();
    EXPECT_LT(stepsEach([this] {
                  for (const Record& each : records) {
                      tones->removeRingtone(each.get());
                  }
              }),
              kFewSteps);
    EXPECT_EQ(countOf(CFSTR("removed")), static_cast<CFIndex>(count));
}

TEST_P(ListModelCost, RemovingAddedOnes) {
    addAll();
    EXPECT_LT(stepsEach([this] {
                  for (const Record& each : records) {
                      tones->removeRingtone(each.get());
                  }
              }),
              kFewSteps);
    EXPECT_EQ(countOf(CFSTR("added")), 0);
}

TEST_P(ListModelCost, LookingUpByName) {
    keepAll();
    size_t found = 0;
    EXPECT_LT(stepsEach([&] {
                  for (const auto& name : names) {
                      found += tones->ringtoneForName(name.get()) ? 1U : 0U;
                  }
              }),
              kFewSteps);
    EXPECT_EQ(found, count);
}

TEST_P(ListModelCost, LookingUpNamesThatAreNotThere) {
    keepAll();
    size_t found = 0;
    EXPECT_LT(stepsEach([&] {
                  for (size_t i = 0; i < count; ++i) {
                      found += tones->ringtoneForName(CFSTR("Nobody")) ? 1U : 0U;
                  }
              }),
              kFewSteps);
    EXPECT_EQ(found, 0U);
}

TEST_P(ListModelCost, Comparing) {
    const Record wanted = listOf(records);
    EXPECT_LT(stepsEach([&] { tones->compareList(wanted.get()); }), kFewSteps);
    EXPECT_EQ(countOf(CFSTR("added")), static_cast<CFIndex>(count));
}

TEST_P(ListModelCost, MergingACatalogue) {
    keepAll();
    EXPECT_LT(stepsEach([this] { tones->updateRingtoneListFromList(catalogue.get()); }), kFewSteps);
    EXPECT_EQ(countOf(CFSTR("unchanged")), static_cast<CFIndex>(count));
}

TEST_P(ListModelCost, Listing) {
    keepAll();
    EXPECT_LT(stepsEach([this] {
                  EXPECT_EQ(CFArrayGetCount(tones->currentRingtonesManagedByNameOnly().get()),
                            static_cast<CFIndex>(count));
              }),
              kFewSteps);
}

INSTANTIATE_TEST_SUITE_P(Ringtones, ListModelCost, testing::Values(1000U, 10000U));

/// With the ringtones on the phone, and half of them wanted.
TEST_F(ObjectTest, ComparingWithAFullPhoneTakesAFewStepsARingtone) {
    constexpr size_t kCount = 2000;
    std::vector<Entry> entries;
    std::vector<Record> wanted;
    for (size_t i = 0; i < kCount; ++i) {
        entries.push_back({std::to_string(i) + ".mp3", toneName(i)});
        if (i % 2 == 0) {
            wanted.push_back(record({toneName(i)}));
        }
    }
    putRingtones(fake.phone(), entries);
    const auto tones = makePhone()->ringtoneManager();
    const Record list = listOf(wanted);
    steps = 0;
    tones->compareList(list.get());
    EXPECT_LT(static_cast<double>(steps) / kCount, kFewSteps);
    EXPECT_EQ(CFArrayGetCount(tones->currentRingtonesManaged().get()),
              static_cast<CFIndex>(wanted.size()));
}

} // namespace
