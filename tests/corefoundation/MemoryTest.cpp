// Memory that runs out while a property list is read.
#include "tests/support/Shortage.h"

#include <CoreFoundation/CFRef.h>
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace {

using krl::cf::adopt;
using krl::cf::CFRef;
using krl::test::Failing;
using krl::test::isShort;

constexpr char kDocument[] =
    "<plist version=\"1.0\"><dict>"
    "<key>a text long enough to stand on the heap</key><string>another such text &lt;here</string>"
    "<key>numbers</key><array><integer>1</integer><integer>-2</integer><real>1.5</real></array>"
    "<key>date</key><date>2007-09-27T00:00:00Z</date><key>data</key><data>AAECAwQF</data>"
    "<key>yes</key><true/><key>\xc3\xa9</key><string>\xc3\xa8</string></dict></plist>";
constexpr char kBroken[] = "<plist version=\"1.0\"><dict><key>unfinished, at some length</key>";

struct Outcome {
    bool wasShort;
    bool isRead;
    CFRef<CFStringRef> error;
};

Outcome readWith(Failing failing, size_t allocations, CFDataRef document, CFOptionFlags options) {
    Outcome outcome{};
    CFStringRef error = nullptr;
    CFPropertyListRef list = nullptr;
    outcome.wasShort = isShort(failing, allocations, [&] {
        list = CFPropertyListCreateFromXMLData(nullptr, document, options, &error);
    });
    outcome.error = adopt(error);
    outcome.isRead = adopt(list) != nullptr;
    return outcome;
}

CFRef<CFDataRef> dataOf(const char* text) {
    return adopt(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(text),
                              static_cast<CFIndex>(std::char_traits<char>::length(text))));
}

std::string textOf(CFStringRef string) {
    std::string text(200, '\0');
    CFStringGetCString(string, text.data(), static_cast<CFIndex>(text.size()),
                       kCFStringEncodingUTF8);
    return text.c_str();
}

class Reading : public ::testing::TestWithParam<CFOptionFlags> {};

// Each allocation in turn.
TEST_P(Reading, AnyAllocationThatFailsOnceIsAnError) {
    const auto document = dataOf(kDocument);
    size_t allocations = 0;
    for (bool goesOn = true; goesOn; ++allocations) {
        const Outcome outcome = readWith(Failing::Once, allocations, document.get(), GetParam());
        goesOn = outcome.wasShort;
        EXPECT_NE(outcome.isRead, outcome.wasShort);
        if (outcome.wasShort) {
            ASSERT_TRUE(outcome.error);
            EXPECT_EQ(textOf(outcome.error.get()), "No property list: memory has run out")
                << "allocation " << allocations;
        }
    }
    EXPECT_GT(allocations, 20u);
}

TEST_P(Reading, NoMemoryFromSomeAllocationOnIsAFailure) {
    for (const char* const text : {kDocument, kBroken}) {
        const auto document = dataOf(text);
        size_t allocations = 0;
        for (bool goesOn = true; goesOn; ++allocations) {
            const Outcome outcome =
                readWith(Failing::FromThenOn, allocations, document.get(), GetParam());
            goesOn = outcome.wasShort;
            EXPECT_EQ(outcome.isRead, !outcome.wasShort && text == kDocument);
        }
        EXPECT_GT(allocations, 2u);
    }
}

INSTANTIATE_TEST_SUITE_P(Options, Reading,
                         ::testing::Values(kCFPropertyListImmutable,
                                           kCFPropertyListMutableContainers,
                                           kCFPropertyListMutableContainersAndLeaves));

} // namespace
