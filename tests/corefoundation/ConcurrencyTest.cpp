#include "tests/corefoundation/Support.h"

#include <gtest/gtest.h>
#include <thread>

namespace krl::cf::test {
namespace {

/// Runs the function on several threads at once.
template <typename Function>
void onThreads(int count, Function function) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] { function(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(Concurrency, ReferencesAreCountedByAllThreads) {
    auto shared = makeString("shared");
    onThreads(4, [&](int) {
        for (int i = 0; i < 10000; ++i) {
            CFRetain(shared.get());
            CFRelease(shared.get());
        }
    });
    EXPECT_EQ(CFGetRetainCount(shared.get()), 1);
}

TEST(Concurrency, WhoeverReleasesLastEndsTheObject) {
    for (int round = 0; round < 200; ++round) {
        auto dictionary = makeDictionary();
        for (int i = 0; i < 20; ++i) {
            CFDictionarySetValue(dictionary.get(), makeInteger(i).get(), makeString("value").get());
        }
        CFDictionaryRef shared = dictionary.leak();
        CFRetain(shared);
        onThreads(2, [&](int thread) {
            EXPECT_TRUE(CFDictionaryContainsKey(shared, makeInteger(thread).get()));
            CFRelease(shared);
        });
    }
}

TEST(Concurrency, ImmutableObjectsAreReadByAllThreads) {
    auto catalogue = makeDictionary();
    for (int i = 0; i < 100; ++i) {
        CFDictionarySetValue(catalogue.get(), makeString("k" + std::to_string(i)).get(),
                             makeString("v\xC3\xA9").get());
    }
    auto shared = adopt(CFDictionaryCreateCopy(nullptr, catalogue.get()));
    onThreads(4, [&](int) {
        for (int i = 0; i < 100; ++i) {
            auto value = retain(cast<CFStringRef>(
                CFDictionaryGetValue(shared.get(), makeString("k" + std::to_string(i)).get())));
            EXPECT_EQ(textOf(value.get()), "v\xC3\xA9");
            EXPECT_EQ(CFHash(shared.get()), 100U);
        }
        EXPECT_TRUE(CFEqual(shared.get(), catalogue.get()));
    });
}

TEST(Concurrency, PropertyListsAreReadAndWrittenByAllThreads) {
    onThreads(4, [](int thread) {
        auto object = makeArray();
        CFArrayAppendValue(object.get(), makeReal(thread + 0.5).get());
        for (int i = 0; i < 50; ++i) {
            auto data = adopt(CFPropertyListCreateXMLData(nullptr, object.get()));
            auto back = adopt(CFPropertyListCreateFromXMLData(nullptr, data.get(), 0, nullptr));
            EXPECT_TRUE(CFEqual(back.get(), object.get()));
        }
    });
}

} // namespace
} // namespace krl::cf::test
