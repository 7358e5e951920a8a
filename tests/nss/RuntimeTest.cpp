// What NSS is allowed to speak, and for how long.

#include "tests/nss/Identity.h"

#include <nss.h>
#include <ssl.h>

#include <thread>
#include <vector>

namespace krl::nss::testing {
namespace {

struct Settings {
    PRInt32 leastVersion = 0;
    PRInt32 leastRsaBits = 0;
    std::vector<PRInt32> policies;

    bool operator==(const Settings&) const = default;
};

Settings settings() {
    Settings now;
    EXPECT_EQ(NSS_OptionGet(NSS_TLS_VERSION_MIN_POLICY, &now.leastVersion), SECSuccess);
    EXPECT_EQ(NSS_OptionGet(NSS_RSA_MIN_KEY_SIZE, &now.leastRsaBits), SECSuccess);
    for (const int suite : kOldSuites) {
        EXPECT_EQ(SSL_CipherPolicyGet(suite, &now.policies.emplace_back()), SECSuccess);
    }
    return now;
}

TEST(Bars, AreDownWhileOldProtocolsAreAllowedAndThenAsBefore) {
    ASSERT_TRUE(start());
    NSS_OptionSet(NSS_TLS_VERSION_MIN_POLICY, 0x0303);
    NSS_OptionSet(NSS_RSA_MIN_KEY_SIZE, 2048);
    const Settings before = settings();
    {
        const OldProtocols allowed;
        EXPECT_EQ(settings().leastVersion, 0x0300);
        EXPECT_EQ(settings().policies, (std::vector<PRInt32>(3, SSL_ALLOWED)));
        const ShortKeys short1024(1024);
        EXPECT_EQ(settings().leastRsaBits, 512);
    }
    EXPECT_EQ(settings(), before);
}

TEST(Bars, ForKeysStayUpWhereTheKeyIsLongEnough) {
    ASSERT_TRUE(start());
    NSS_OptionSet(NSS_RSA_MIN_KEY_SIZE, 1023);
    const OldProtocols allowed;
    const ShortKeys long1024(1024);
    EXPECT_EQ(settings().leastRsaBits, 1023);
    const ShortKeys short768(768);
    EXPECT_EQ(settings().leastRsaBits, 512);
    { const ShortKeys another1024(1024); }
    EXPECT_EQ(settings().leastRsaBits, 512) << "still needed";
}

TEST(Bars, ThatSomebodyElseSetsMeanwhileStayAsTheyWereSet) {
    ASSERT_TRUE(start());
    NSS_OptionSet(NSS_TLS_VERSION_MIN_POLICY, 0x0303);
    NSS_OptionSet(NSS_RSA_MIN_KEY_SIZE, 2048);
    {
        const OldProtocols allowed;
        const ShortKeys shorter(1024);
        NSS_OptionSet(NSS_TLS_VERSION_MIN_POLICY, 0x0302);
        NSS_OptionSet(NSS_RSA_MIN_KEY_SIZE, 3072);
        SSL_CipherPolicySet(kOldSuites[0], SSL_NOT_ALLOWED);
    }
    EXPECT_EQ(settings().leastVersion, 0x0302);
    EXPECT_EQ(settings().leastRsaBits, 3072);
    EXPECT_EQ(settings().policies[0], SSL_NOT_ALLOWED);
    SSL_CipherPolicySet(kOldSuites[0], SSL_ALLOWED);
    NSS_OptionSet(NSS_RSA_MIN_KEY_SIZE, 1023);
}

TEST(Bars, StayDownUntilTheLastThatNeedsThemDownHasGone) {
    ASSERT_TRUE(start());
    const Settings before = settings();
    {
        std::optional<OldProtocols> first(std::in_place);
        const OldProtocols second;
        first.reset();
        EXPECT_EQ(settings().leastVersion, 0x0300);
    }
    EXPECT_EQ(settings(), before);
}

TEST(Bars, AreUpAgainAfterManyThreads) {
    ASSERT_TRUE(start());
    const Settings before = settings();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 200; ++round) {
                const OldProtocols allowed;
                PRInt32 least = 0;
                NSS_OptionGet(NSS_TLS_VERSION_MIN_POLICY, &least);
                EXPECT_EQ(least, 0x0300);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(settings(), before);
}

TEST(Nss, StartsAnyNumberOfTimesFromAnyThread) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] { EXPECT_TRUE(start()); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(Nss, OfThisSystemSpeaksSsl3) {
    ASSERT_TRUE(start());
    const Settings before = settings();
    EXPECT_TRUE(speaksSsl3());
    EXPECT_EQ(settings(), before);
}

} // namespace
} // namespace krl::nss::testing
