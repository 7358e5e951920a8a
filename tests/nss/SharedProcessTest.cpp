// NSS in a process whose application uses it too, and ends it as it likes.

#include "tests/nss/Identity.h"

#include <nss.h>

namespace krl::nss::testing {
namespace {

void expectUsable() {
    ASSERT_TRUE(start());
    EXPECT_TRUE(speaksSsl3());
    const Identity identity = newIdentity("Somebody");
    EXPECT_NE(parsePrivateKey(identity.keyPem), nullptr);
    EXPECT_NE(parseCertificate(identity.certificatePem), nullptr);
}

TEST(SharedProcess, TheApplicationMayBeginFirst) {
    ASSERT_EQ(NSS_NoDB_Init(nullptr), SECSuccess);
    expectUsable();
}

TEST(SharedProcess, TheApplicationMayBeginLater) {
    expectUsable();
    EXPECT_EQ(NSS_NoDB_Init(nullptr), SECSuccess);
    expectUsable();
}

TEST(SharedProcess, TheApplicationMayEndItBetweenSessions) {
    ASSERT_EQ(NSS_NoDB_Init(nullptr), SECSuccess);
    expectUsable();
    EXPECT_EQ(NSS_Shutdown(), SECSuccess);
    expectUsable();
}

} // namespace
} // namespace krl::nss::testing
