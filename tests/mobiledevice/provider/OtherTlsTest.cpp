// Encrypted sessions with a phone whose SSL 3.0 and TLS are not NSS's.

#include "tests/support/OtherTls.h"
#include "tests/mobiledevice/provider/KeptPairRecord.h"
#include "tests/mobiledevice/provider/ProviderFixture.h"

#include <gmock/gmock.h>

#include <iostream>

namespace krl::provider::testing {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::StartsWith;
using virtualphone::testing::OtherTls;
using virtualphone::testing::OtherTlsKeys;
using virtualphone::testing::OtherTlsOptions;

class OtherTlsTest : public ProviderTest {
protected:
    explicit OtherTlsTest(OtherTlsOptions other = {}) : other_(std::move(other)) {}

    void SetUp() override {
        const OtherTls* program = OtherTls::instance();
        if (program == nullptr) {
            GTEST_SKIP() << "java is not installed";
        }
        std::cout << "the phone's side is " << program->name() << ", " << other_.protocol << "\n";
        keys = std::make_shared<OtherTlsKeys>(*program, other_);
        options.keys = keys;
        ProviderTest::SetUp();
    }

    // What a sync needs: a session, a service started in it, and the way back to clear.
    void expectUsable() {
        afc_connection* files = openFiles();
        EXPECT_EQ(md.AFCDirectoryCreate(files, "/made"), 0);
        EXPECT_TRUE(exists("/made"));
        EXPECT_NE(cf::adopt(md.AMDeviceCopyValue(device, nullptr, CFSTR("DeviceName"))).get(),
                  nullptr);
        EXPECT_EQ(md.AFCConnectionClose(files), 0);
        EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    }

    // Protocol and suite of each that was carried out.
    std::vector<std::string> handshakes() {
        std::vector<std::string> names;
        for (const auto& entry : log().entries()) {
            if (entry.request == "Handshake" && entry.error.empty()) {
                names.push_back(entry.name);
            }
        }
        return names;
    }

    void expectStarts(size_t count) {
        size_t starts = 0;
        for (const auto& entry : log().entries()) {
            starts += entry.request == "StartSession" ? size_t{1} : 0;
        }
        EXPECT_EQ(starts, count);
    }

    // Of the phone's wish for a new handshake: the session ends, nothing else does.
    void expectRefusal() {
        for (int round = 0; round < 3; ++round) {
            openSession();
            am_service* service = nullptr;
            EXPECT_EQ(md.AMDeviceStartService(device, CFSTR("com.apple.afc"), &service, nullptr),
                      kAMDNotConnected);
            EXPECT_EQ(service, nullptr);
            EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNotConnected);
        }
        EXPECT_EQ(keys->handshakes(), 3) << "one a session";
    }

    std::shared_ptr<const OtherTlsKeys> keys;

private:
    const OtherTlsOptions other_;
};

TEST_F(OtherTlsTest, OfSsl3IsSpokenToAtTheFirstTryAndAgain) {
    expectUsable();
    EXPECT_EQ(keys->handshakes(), 1);
    openSession();
    EXPECT_EQ(md.AMDeviceStopSession(device), 0);
    EXPECT_EQ(md.AMDeviceStartSession(device), 0);
    EXPECT_EQ(md.AMDeviceStopSession(device), 0);
    EXPECT_EQ(keys->handshakes(), 3);
    EXPECT_THAT(handshakes(), Each(StartsWith("SSLv3, ")));
}

TEST_F(OtherTlsTest, RefusesAHostThatItIsNotPairedWith) {
    changeKeptRecord(phone().udid(), [](const PlistRef& record) {
        setData(record, "HostCertificate", dataAt(record, "RootCertificate").value());
        setData(record, "HostPrivateKey", dataAt(record, "RootPrivateKey").value());
    });
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDeviceValidatePairing(device), 0);
    EXPECT_EQ(md.AMDeviceStartSession(device), kAMDCertificateRefused);
}

class StrictOtherTls : public OtherTlsTest {
protected:
    StrictOtherTls() : OtherTlsTest({.closesOnOtherVersions = true}) {}
};

TEST_F(StrictOtherTls, ThatClosesOnOtherVersionsIsSpokenToAtTheFirstTry) {
    expectUsable();
    EXPECT_EQ(keys->handshakes(), 1);
}

class StrictOtherTlsOfLaterFirmware : public StrictOtherTls {
protected:
    StrictOtherTlsOfLaterFirmware() { options.firmware = "2.0"; }
};

TEST_F(StrictOtherTlsOfLaterFirmware, IsSpokenToAtTheSecondTry) {
    expectUsable();
    expectStarts(2);
    EXPECT_EQ(keys->handshakes(), 1);
}

class OtherTls12 : public OtherTlsTest {
protected:
    explicit OtherTls12(bool asksForANewHandshake = false)
        : OtherTlsTest({.protocol = "TLSv1.2", .asksForANewHandshake = asksForANewHandshake}) {
        options.firmware = "2.0";
    }
};

TEST_F(OtherTls12, OfLaterFirmwareIsSpokenToAtTheFirstTry) {
    expectUsable();
    expectStarts(1);
    EXPECT_THAT(handshakes(), ElementsAre(StartsWith("TLSv1.2, ")));
}

class EarlyOtherTls12 : public OtherTls12 {
protected:
    EarlyOtherTls12() { options.firmware = "1.1.4"; }
};

TEST_F(EarlyOtherTls12, IsSpokenToAtTheSecondTry) {
    expectUsable();
    expectStarts(2);
}

class RestlessOtherTls12 : public OtherTls12 {
protected:
    RestlessOtherTls12() : OtherTls12(/*asksForANewHandshake=*/true) {}
};

class RestlessOtherTls : public OtherTlsTest {
protected:
    RestlessOtherTls() : OtherTlsTest({.asksForANewHandshake = true}) {}
};

TEST_F(RestlessOtherTls12, ANewHandshakeThatItAsksForEndsTheSession) {
    expectRefusal();
}

TEST_F(RestlessOtherTls, ANewHandshakeThatItAsksForEndsTheSession) {
    expectRefusal();
}

} // namespace
} // namespace krl::provider::testing
