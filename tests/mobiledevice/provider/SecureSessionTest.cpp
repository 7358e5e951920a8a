// Sessions that the phone wants encrypted, and pairing, over the wire.

#include "tests/mobiledevice/provider/KeptPairRecord.h"
#include "tests/mobiledevice/provider/ProviderFixture.h"

#include "mobiledevice/provider/security/PairRecord.h"
#include "mobiledevice/provider/wire/PlistRef.h"

#include "virtualphone/phone/PhoneState.h"
#include "virtualphone/wire/PropertyList.h"

#include "nss/Certificates.h"
#include "nss/Keys.h"
#include "nss/Runtime.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <ostream>
#include <thread>

namespace krl::provider::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::StartsWith;
using virtualphone::parseFault;
using virtualphone::SessionKind;

struct Kind {
    const char* name;
    SessionKind kind;
    const char* firmware;
    const char* version;
};

void PrintTo(const Kind& kind, std::ostream* stream) {
    *stream << kind.name;
}

const Kind kKinds[] = {
    {"Modern", SessionKind::Modern, "2.0", "TLS 1.2"},
    {"Ssl3", SessionKind::Ssl3, "1.1.1", "SSL 3.0, TLS_RSA_WITH_AES_128_CBC_SHA"}};

class Secure : public ProviderTest {
protected:
    Secure() { options.session = SessionKind::Ssl3; }

    void become(const Kind& kind) {
        options.session = kind.kind;
        options.firmware = kind.firmware;
    }

    PlistRef readRecord() { return readKeptRecord(phone().udid()); }

    void saveRecord(const PlistRef& record) { keepRecord(phone().udid(), record); }

    // Changes the record that this computer keeps, behind the phone's back.
    template <typename Change>
    void changeRecord(Change change) {
        changeKeptRecord(phone().udid(), change);
    }

    int32_t connectAndStart() {
        EXPECT_EQ(md.AMDeviceConnect(device), 0);
        EXPECT_EQ(md.AMDeviceValidatePairing(device), 0);
        return md.AMDeviceStartSession(device);
    }

    std::string deviceName() {
        const auto value = cf::adopt(md.AMDeviceCopyValue(device, nullptr, CFSTR("DeviceName")));
        char text[100] = {};
        return value && CFStringGetCString(cf::cast<CFStringRef>(value.get()), text, sizeof text,
                                           kCFStringEncodingUTF8)
                   ? text
                   : "";
    }

    /// The log, one connection after the other: what ends one is not ordered among what comes on the
    /// next.
    std::vector<virtualphone::LogEntry> entriesByConnection() {
        std::vector<virtualphone::LogEntry> entries = log().entries();
        std::stable_sort(entries.begin(), entries.end(), [](const auto& one, const auto& other) {
            return one.connection < other.connection;
        });
        return entries;
    }

    std::vector<std::string> handshakes() {
        std::vector<std::string> names;
        for (const auto& entry : entriesByConnection()) {
            if (entry.request == "Handshake") {
                names.push_back(entry.service + ": " + entry.name + entry.error);
            }
        }
        return names;
    }
};

// ------------------------------------------------------------------ sessions

// ------------------------------------------------------------------ sessions

class SecureSession : public Secure, public ::testing::WithParamInterface<Kind> {
protected:
    SecureSession() { become(GetParam()); }
};

TEST_P(SecureSession, OneReconnectionAsksForNothingMoreThanOneInClear) {
    openSession();                            // asks for the firmware, once
    EXPECT_EQ(deviceName(), "Virtual Phone"); // and by then its handshake is in the log
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    log().clear();
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_NE(files, nullptr);
    EXPECT_EQ(requests(), (std::vector<std::string>{
                              "usbmux/Connect", "usbmux/ReadPairRecord", "lockdown/ValidatePair",
                              "lockdown/StartSession", "lockdown/Handshake",
                              "lockdown/StartService", "lockdown/StopSession", "usbmux/Connect"}));
}

TEST_P(SecureSession, OnlyTheFirstOneOfAPluggingAsksWhatThePhoneIs) {
    log().clear();
    openSession();
    EXPECT_EQ(deviceName(), "Virtual Phone"); // by then the handshake is in the log
    EXPECT_EQ(requests(), (std::vector<std::string>{"usbmux/Connect", "usbmux/ReadPairRecord",
                                                    "lockdown/ValidatePair", "lockdown/GetValue",
                                                    "lockdown/StartSession", "lockdown/Handshake",
                                                    "lockdown/GetValue"}));
}

TEST_P(SecureSession, SpeaksTheNewestThatThePhoneSpeaks) {
    openSession();
    EXPECT_EQ(deviceName(), "Virtual Phone");
    EXPECT_THAT(handshakes(),
                ElementsAre(StartsWith("lockdown: " + std::string(GetParam().version))));
}

TEST_P(SecureSession, IsInClearAgainOnceItIsStopped) {
    openSession();
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(deviceName(), "Virtual Phone");
        EXPECT_EQ(md.AMDeviceStopSession(device), 0);
        EXPECT_EQ(deviceName(), "Virtual Phone");
        EXPECT_EQ(md.AMDeviceValidatePairing(device), 0);
        EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNoSession);
        EXPECT_EQ(md.AMDeviceStartSession(device), 0);
    }
    EXPECT_EQ(deviceName(), "Virtual Phone"); // by then the last handshake is in the log
    EXPECT_EQ(handshakes().size(), 4u);
}

TEST_P(SecureSession, CarriesAnswersOfAnySize) {
    openSession();
    const auto values = cf::adopt(md.AMDeviceCopyValue(device, nullptr, nullptr));
    const auto dictionary = cf::cast<CFDictionaryRef>(values.get());
    ASSERT_NE(dictionary, nullptr);
    EXPECT_TRUE(CFDictionaryContainsKey(dictionary, CFSTR("DevicePublicKey")));
}

TEST_P(SecureSession, ServicesStayInClear) {
    afc_connection* files = openFiles();
    EXPECT_EQ(md.AFCDirectoryCreate(files, "/made"), 0);
    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
    EXPECT_EQ(handshakes().size(), 2u); // the two sessions
}

TEST_P(SecureSession, DisconnectingWithoutStoppingIsFine) {
    const size_t before = openDescriptors();
    for (int round = 0; round < 3; ++round) {
        openSession();
        EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    }
    EXPECT_TRUE(descriptorsFallTo(before));
}

TEST_P(SecureSession, APhoneThatIsPulledOutEndsIt) {
    openSession();
    bus().unplug(id());
    EXPECT_EQ(deviceName(), "");
    EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNotConnected);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SecureSession, ::testing::ValuesIn(kKinds),
                         [](const auto& param) { return param.param.name; });

// A phone whose firmware does not say what it speaks.
class Surprising : public Secure {
protected:
    // With the phone's own account of itself put right by the test.
    void speak(const Kind& kind) {
        become(kind);
        options.firmware = kind.kind == SessionKind::Ssl3 ? "2.0" : "1.1.1";
    }

    std::vector<std::string> lockdownRequests() {
        std::vector<std::string> names;
        for (const auto& entry : entriesByConnection()) {
            if (entry.service == "lockdown") {
                names.push_back(entry.request);
            }
        }
        return names;
    }

    /// Waits until the phone has done with the connection of the first try, and written that down.
    void awaitTheEndOfTheFirstTry() {
        constexpr size_t kListenerAndLockdown = 2;
        ASSERT_TRUE(bus().waitForConnections(kListenerAndLockdown));
    }
};

class EarlyPhoneThatSpeaksTls : public Surprising {
protected:
    EarlyPhoneThatSpeaksTls() { speak(kKinds[0]); }
};

class LaterPhoneThatSpeaksSsl3 : public Surprising {
protected:
    LaterPhoneThatSpeaksSsl3() { speak(kKinds[1]); }
};

TEST_F(EarlyPhoneThatSpeaksTls, IsSpokenToAtTheSecondTryOnAConnectionOfItsOwn) {
    log().clear();
    EXPECT_EQ(connectAndStart(), 0);
    EXPECT_EQ(deviceName(), "Virtual Phone");
    awaitTheEndOfTheFirstTry();
    EXPECT_EQ(lockdownRequests(),
              (std::vector<std::string>{"ValidatePair", "GetValue", "StartSession", "Handshake",
                                        "ValidatePair", "StartSession", "Handshake", "GetValue"}));
    EXPECT_THAT(handshakes(),
                ElementsAre(Not(StartsWith("lockdown: TLS")), StartsWith("lockdown: TLS 1.2")));
}

TEST_F(EarlyPhoneThatSpeaksTls, IsSpokenToAtOnceTheNextTime) {
    openSession();
    // The phone notes a handshake after it has answered; it has by the time it answers this.
    EXPECT_EQ(deviceName(), "Virtual Phone");
    log().clear();
    openSession();
    EXPECT_EQ(deviceName(), "Virtual Phone");
    EXPECT_THAT(handshakes(), ElementsAre(StartsWith("lockdown: TLS 1.2")));
    EXPECT_EQ(md.AMDeviceStopSession(device), 0);
}

TEST_F(EarlyPhoneThatSpeaksTls, IsNotTriedInAnotherWayOnceItHasSpokenThis) {
    openSession();
    EXPECT_EQ(deviceName(), "Virtual Phone");
    log().clear();
    phone().faults().add(parseFault("lockdown/Handshake=drop"));
    EXPECT_EQ(connectAndStart(), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    ASSERT_TRUE(bus().waitForConnections(1));
    EXPECT_EQ(handshakes().size(), 1u);
}

TEST_F(LaterPhoneThatSpeaksSsl3, IsSpokenToAtTheSecondTry) {
    openSession();
    EXPECT_EQ(deviceName(), "Virtual Phone");
    awaitTheEndOfTheFirstTry();
    EXPECT_THAT(handshakes(),
                ElementsAre(Not(StartsWith("lockdown: SSL 3")), StartsWith("lockdown: SSL 3.0")));
}

TEST_F(EarlyPhoneThatSpeaksTls, WhoseSecondTryGetsFurtherIsJudgedByThat) {
    changeRecord([](const PlistRef& record) {
        setData(record, "DeviceCertificate", dataAt(record, "HostCertificate").value());
    });
    EXPECT_EQ(connectAndStart(), kAMDWrongCertificate);
}

TEST_F(EarlyPhoneThatSpeaksTls, ASilentHandshakeIsNotTriedTwice) {
    phone().faults().add(parseFault("lockdown/Handshake=silent"));
    md.AMDeviceSetCallTimeout(50);
    EXPECT_EQ(connectAndStart(), kAMDTimedOut);
    md.AMDeviceSetCallTimeout(0);
    EXPECT_EQ(handshakes().size(), 1u);
}

TEST_F(Secure, AFirmwareThatIsNotSaidOrALostConnectionMeanwhile) {
    for (const auto& [fault, status] :
         {std::pair{"drop", int32_t{kAMDNotConnected}}, std::pair{"cut", int32_t{kAMDNotConnected}},
          std::pair{"garbled", int32_t{kAMDBadReply}},
          std::pair{"error:GetProhibited", int32_t{0}}}) {
        phone().faults().add(parseFault("lockdown/GetValue=" + std::string(fault)));
        EXPECT_EQ(connectAndStart(), status) << fault;
    }
}

TEST_F(Secure, APhoneThatClaimsToBeAnotherIsRefused) {
    phone().state().values.set("", "UniqueDeviceID", virtualphone::newString(std::string(40, 'f')));
    EXPECT_EQ(connectAndStart(), kAMDWrongDevice);
    EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNoSession);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDNotConnected);
    EXPECT_EQ(connectAndStart(), kAMDWrongDevice) << "however often";
    for (CFStringRef key : {CFSTR("UniqueDeviceID"), CFStringRef(nullptr)}) {
        EXPECT_EQ(md.AMDeviceConnect(device), 0);
        EXPECT_EQ(md.AMDeviceCopyValue(device, nullptr, key), nullptr) << "no name to be taken for";
        EXPECT_EQ(deviceName(), "") << "and the connection is lost";
    }
}

class SecureServices : public SecureSession {
protected:
    SecureServices() { options.secureServices = true; }
};

class SecureServicesOnALongWire : public SecureServices {
protected:
    SecureServicesOnALongWire() { options.wireDelay = std::chrono::milliseconds(5); }
};

TEST_P(SecureServicesOnALongWire, AreAsGood) {
    afc_connection* files = openFiles();
    const std::string bytes(3'000'000, 'z');
    const afc_file_ref file = openFile(files, "/file", kAFCOpenWrite);
    EXPECT_EQ(md.AFCFileRefWrite(files, file, bytes.data(), static_cast<uint32_t>(bytes.size())),
              0);
    EXPECT_EQ(md.AFCFileRefClose(files, file), 0);
    EXPECT_EQ(contents("/file"), bytes);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SecureServicesOnALongWire, ::testing::ValuesIn(kKinds),
                         [](const auto& param) { return param.param.name; });

TEST_P(SecureServices, AreEncryptedWhenThePhoneSaysSo) {
    afc_connection* files = openFiles();
    const std::string bytes(3'000'000, 'z');
    const afc_file_ref file = openFile(files, "/file", kAFCOpenWrite);
    EXPECT_EQ(md.AFCFileRefWrite(files, file, bytes.data(), static_cast<uint32_t>(bytes.size())),
              0);
    EXPECT_EQ(md.AFCFileRefClose(files, file), 0);
    EXPECT_EQ(contents("/file"), bytes);

    std::string read(bytes.size(), '\0');
    auto length = static_cast<uint32_t>(read.size());
    const afc_file_ref again = openFile(files, "/file", kAFCOpenRead);
    EXPECT_EQ(md.AFCFileRefRead(files, again, read.data(), &length), 0);
    EXPECT_EQ(length, bytes.size());
    EXPECT_EQ(read, bytes);

    am_service* proxy = openProxy();
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), 0);
    EXPECT_EQ(md.AMDShutdownNotificationProxy(proxy), 0);
    EXPECT_THAT(handshakes(),
                ElementsAre(StartsWith("lockdown: "), StartsWith("afc: "), StartsWith("lockdown: "),
                            StartsWith("notification_proxy: ")));
}

TEST_P(SecureServices, ARefusedPieceFailsTheWriteAndTheFileStaysUsable) {
    afc_connection* files = openFiles();
    const std::string bytes(4'194'304, 'z');
    const afc_file_ref file = openFile(files, "/file", kAFCOpenWrite);
    phone().faults().add(parseFault("afc/Write#3=status:18"));
    EXPECT_EQ(md.AFCFileRefWrite(files, file, bytes.data(), static_cast<uint32_t>(bytes.size())),
              kAFCNoSpaceLeft);
    EXPECT_EQ(md.AFCFileRefClose(files, file), 0);
    EXPECT_EQ(md.AFCRemovePath(files, "/file"), 0);
}

TEST_P(SecureServices, AHandshakeThatFailsIsAStatus) {
    openSession();
    am_service* service = startService("com.apple.afc");
    phone().faults().add(parseFault("afc/Handshake=drop"));
    afc_connection* files = nullptr;
    EXPECT_EQ(md.AFCConnectionOpen(service, 0, &files), kAFCNotConnected);
    service = startService("com.apple.afc");
    phone().faults().add(parseFault("afc/Handshake=silent"));
    md.AMDeviceSetCallTimeout(50);
    EXPECT_EQ(md.AFCConnectionOpen(service, 0, &files), kAFCTimedOut);
    md.AMDeviceSetCallTimeout(0);
    service = startService("com.apple.afc");
    phone().faults().add(parseFault("afc/Handshake=garbled"));
    EXPECT_EQ(md.AFCConnectionOpen(service, 0, &files), kAMDHandshakeFailed);
    EXPECT_EQ(files, nullptr);
    am_service* proxy = startService("com.apple.mobile.notification_proxy");
    phone().faults().add(parseFault("notification_proxy/Handshake=drop"));
    EXPECT_EQ(md.AMDPostNotification(proxy, CFSTR("x"), nullptr), kAMDNotConnected);
}

INSTANTIATE_TEST_SUITE_P(Kinds, SecureServices, ::testing::ValuesIn(kKinds),
                         [](const auto& param) { return param.param.name; });

// ------------------------------------------------------------------ broken handshakes

struct BrokenHandshake {
    const char* action;
    int32_t status;
};

void PrintTo(const BrokenHandshake& fault, std::ostream* stream) {
    *stream << fault.action;
}

class FaultyHandshake : public Secure,
                        public ::testing::WithParamInterface<std::tuple<Kind, BrokenHandshake>> {
protected:
    FaultyHandshake() { become(std::get<0>(GetParam())); }
};

TEST_P(FaultyHandshake, FailsWithThisStatusAndLeavesNothingOpen) {
    const BrokenHandshake& fault = std::get<1>(GetParam());
    EXPECT_EQ(connectAndStart(), 0); // whatever NSS opens for good is open
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    ASSERT_TRUE(bus().waitForConnections(1));
    const size_t before = openDescriptors();
    // One that ends by itself must not need the deadline: its status would be another.
    md.AMDeviceSetCallTimeout(fault.status == kAMDTimedOut ? 50 : 60'000);
    phone().faults().add(parseFault("lockdown/Handshake=" + std::string(fault.action)));
    EXPECT_EQ(connectAndStart(), fault.status);
    EXPECT_EQ(md.AMDeviceStopSession(device), kAMDNoSession);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_TRUE(descriptorsFallTo(before));
    if (std::string(fault.action) != "unplug") {
        EXPECT_EQ(connectAndStart(), 0); // and the next one succeeds
    }
}

INSTANTIATE_TEST_SUITE_P(
    Handshakes, FaultyHandshake,
    ::testing::Combine(::testing::ValuesIn(kKinds),
                       ::testing::Values(BrokenHandshake{"drop", kAMDNotConnected},
                                         BrokenHandshake{"unplug", kAMDNotConnected},
                                         BrokenHandshake{"silent", kAMDTimedOut},
                                         BrokenHandshake{"cut", kAMDNotConnected},
                                         BrokenHandshake{"stall", kAMDTimedOut},
                                         BrokenHandshake{"garbled", kAMDHandshakeFailed})),
    [](const auto& param) {
        return std::string(std::get<0>(param.param).name) + "_" + std::get<1>(param.param).action;
    });

TEST_F(Secure, AHandshakeCutAfterAnyNumberOfBytesIsAStatus) {
    constexpr uint64_t kStep = 61; // of about 1,500 bytes
    EXPECT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), 0);
    const size_t before = openDescriptors();
    int failures = 0;
    for (uint64_t bytes = 1;; bytes += kStep) {
        ASSERT_EQ(md.AMDeviceConnect(device), 0);
        ASSERT_EQ(md.AMDeviceValidatePairing(device), 0);
        phone().faults().dropAfterSending(virtualphone::Service::Lockdown, bytes);
        const int32_t status = md.AMDeviceStartSession(device);
        phone().faults().clear();
        if (status == 0) {
            break;
        }
        ++failures;
        EXPECT_EQ(status, kAMDNotConnected) << bytes;
    }
    EXPECT_GT(failures, 10);
    EXPECT_TRUE(descriptorsFallTo(before));
}

// ------------------------------------------------------------------ keys and certificates

TEST_F(Secure, ARecordWithoutReadableKeysIsABadRecord) {
    const PlistRef good = readRecord();
    for (const char* key : {"HostCertificate", "HostPrivateKey", "DeviceCertificate"}) {
        for (const std::string& value : {std::string(), std::string("nonsense")}) {
            changeRecord([&](const PlistRef& record) { setData(record, key, value); });
            EXPECT_EQ(connectAndStart(), kAMDBadPairRecord) << key;
        }
        changeRecord([&](const PlistRef& record) { plist_dict_remove_item(record.get(), key); });
        EXPECT_EQ(connectAndStart(), kAMDBadPairRecord) << key;
        saveRecord(good);
    }
    EXPECT_EQ(connectAndStart(), 0);
}

TEST_F(Secure, AKeyThatDoesNotFitTheCertificateIsRefused) {
    changeRecord([](const PlistRef& record) {
        setData(record, "HostPrivateKey", dataAt(record, "RootPrivateKey").value());
    });
    const int32_t status = connectAndStart();
    EXPECT_TRUE(status == kAMDHandshakeFailed || status == kAMDCertificateRefused) << status;
}

TEST_F(Secure, APhoneWithAnotherKeyThanThePairedOneIsNotSpokenTo) {
    changeRecord([](const PlistRef& record) {
        setData(record, "DeviceCertificate", dataAt(record, "HostCertificate").value());
    });
    EXPECT_EQ(connectAndStart(), kAMDWrongCertificate);
}

// Another identity of this computer, of which the phone has not heard; in its time or not.
struct Stranger {
    explicit Stranger(bool isExpired = false) {
        const auto now = std::chrono::system_clock::now();
        const nss::KeyPair keys = nss::newKeyPair(1024);
        key = nss::privateKeyPem(keys);
        certificate =
            nss::newCertificatePem({.subject = "Stranger",
                                    .issuer = "Stranger",
                                    .subjectKey = keys.publicKey.get(),
                                    .issuerKey = keys.privateKey.get(),
                                    .notBefore = now - std::chrono::hours(100),
                                    .notAfter = now + std::chrono::hours(isExpired ? -50 : 50)});
    }

    std::string key;
    std::string certificate;
};

TEST_F(Secure, AComputerThatThePhoneDoesNotKnowIsRefused) {
    const Stranger stranger;
    changeRecord([&](const PlistRef& record) {
        setData(record, "HostCertificate", stranger.certificate);
        setData(record, "HostPrivateKey", stranger.key);
    });
    EXPECT_EQ(connectAndStart(), kAMDCertificateRefused);
}

TEST_F(Secure, ACertificateOfThisComputerThatHasExpiredIsSaidToBeThat) {
    const Stranger stranger(/*isExpired=*/true);
    changeRecord([&](const PlistRef& record) {
        setData(record, "HostCertificate", stranger.certificate);
        setData(record, "HostPrivateKey", stranger.key);
    });
    EXPECT_EQ(connectAndStart(), kAMDCertificateExpired);
}

class ExpiredPhone : public Secure {
protected:
    ExpiredPhone() { options.expiredCertificate = true; }
};

TEST_F(ExpiredPhone, IsSaidToBeThat) {
    EXPECT_EQ(connectAndStart(), kAMDCertificateExpired);
}

// ------------------------------------------------------------------ pairing

class Pairing : public SecureSession {
protected:
    Pairing() { options.paired = false; }
};

TEST_P(Pairing, MakesAPhoneUsable) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    EXPECT_EQ(md.AMDeviceIsPaired(device), 0);
    log().clear();
    EXPECT_EQ(md.AMDevicePair(device), 0);
    EXPECT_EQ(requests(),
              (std::vector<std::string>{"lockdown/GetValue", "usbmux/ReadBUID", "lockdown/GetValue",
                                        "lockdown/Pair", "usbmux/SavePairRecord"}));
    EXPECT_NE(md.AMDeviceIsPaired(device), 0);
    EXPECT_EQ(md.AMDeviceStartSession(device), 0); // pairing validates too
    EXPECT_EQ(md.AMDeviceDisconnect(device), 0);
    EXPECT_EQ(connectAndStart(), 0);
    EXPECT_EQ(deviceName(), "Virtual Phone");
}

TEST_P(Pairing, KeepsARecordWithEverythingThatSuchRecordsHave) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDevicePair(device), 0);
    const PlistRef record = readRecord();
    EXPECT_EQ(stringAt(record, "SystemBUID"), bus().systemBuid());
    EXPECT_EQ(stringAt(record, "HostID").value_or("").size(), 36u);
    EXPECT_TRUE(hasKey(record, "WiFiMACAddress"));
    ASSERT_TRUE(nss::start());
    for (const char* key : {"HostCertificate", "RootCertificate", "DeviceCertificate"}) {
        const auto certificate = nss::parseCertificate(dataAt(record, key).value_or(""));
        ASSERT_NE(certificate, nullptr) << key;
        EXPECT_TRUE(nss::isValidNow(certificate.get())) << key;
        EXPECT_STREQ(certificate->issuerName, "CN=KRLVesk Root") << key;
    }
    for (const char* key : {"HostPrivateKey", "RootPrivateKey"}) {
        EXPECT_NE(nss::parsePrivateKey(dataAt(record, key).value_or("")), nullptr) << key;
    }
}

TEST_P(Pairing, AgainReplacesTheOldOne) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDevicePair(device), 0);
    const std::string first = stringAt(readRecord(), "HostID").value();
    ASSERT_EQ(md.AMDevicePair(device), 0);
    const std::string second = stringAt(readRecord(), "HostID").value();
    EXPECT_NE(first, second);
    EXPECT_EQ(connectAndStart(), 0);
}

TEST_P(Pairing, EndsOnBothSides) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDevicePair(device), 0);
    const std::string host = stringAt(readRecord(), "HostID").value();
    EXPECT_TRUE(phone().trusts(host));
    EXPECT_EQ(md.AMDeviceUnpair(device), 0);
    EXPECT_FALSE(phone().trusts(host));
    EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
    EXPECT_EQ(md.AMDeviceIsPaired(device), 0);
    EXPECT_EQ(md.AMDeviceValidatePairing(device), kAMDNotPaired);
    EXPECT_EQ(md.AMDeviceUnpair(device), kAMDNotPaired);
}

TEST_P(Pairing, EndsAlsoWithAPhoneThatHasForgotten) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDevicePair(device), 0);
    phone().forgetHosts();
    EXPECT_EQ(md.AMDeviceUnpair(device), 0);
    EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
}

TEST_P(Pairing, ARefusedOneKeepsNothing) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    phone().faults().add(parseFault("lockdown/Pair=error:PasswordProtected"));
    EXPECT_EQ(md.AMDevicePair(device), -17);
    EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
    EXPECT_EQ(md.AMDeviceIsPaired(device), 0);
    EXPECT_EQ(md.AMDevicePair(device), 0); // and can be tried again on this connection
}

TEST_P(Pairing, ThatTheMuxDoesNotKeepIsTakenBack) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    bus().faults().add(parseFault("usbmux/SavePairRecord=status:5"));
    log().clear();
    EXPECT_EQ(md.AMDevicePair(device), kAMDPairRecordNotKept);
    std::string host;
    for (const auto& entry : log().entries()) {
        if (entry.request == "Pair") {
            host = entry.name;
        }
    }
    ASSERT_FALSE(host.empty());
    EXPECT_FALSE(phone().trusts(host));
    EXPECT_EQ(md.AMDeviceIsPaired(device), 0);
}

TEST_P(Pairing, ARecordThatTheMuxDoesNotDeleteIsSaid) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDevicePair(device), 0);
    bus().faults().add(parseFault("usbmux/DeletePairRecord=status:5"));
    EXPECT_EQ(md.AMDeviceUnpair(device), kAMDPairRecordNotKept);
}

TEST_P(Pairing, ARefusedUnpairingKeepsTheRecord) {
    ASSERT_EQ(md.AMDeviceConnect(device), 0);
    ASSERT_EQ(md.AMDevicePair(device), 0);
    phone().faults().add(parseFault("lockdown/Unpair=error:PasswordProtected"));
    EXPECT_EQ(md.AMDeviceUnpair(device), -17);
    EXPECT_TRUE(bus().hasPairRecord(phone().udid()));
    EXPECT_EQ(connectAndStart(), 0);
}

TEST_P(Pairing, NeedsAConnectionAndAHandle) {
    EXPECT_EQ(md.AMDevicePair(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDeviceUnpair(device), kAMDNotConnected);
    EXPECT_EQ(md.AMDevicePair(nullptr), kAMDInvalidHandle);
    EXPECT_EQ(md.AMDeviceUnpair(nullptr), kAMDInvalidHandle);
}

TEST_P(Pairing, APhoneThatLosesItsVoiceMeanwhileIsAStatus) {
    for (const auto& [fault, status] :
         {std::pair{"GetValue=drop", int32_t{kAMDNotConnected}},
          std::pair{"GetValue=error:MissingValue", int32_t{-12}},
          std::pair{"Pair=drop-unanswered", int32_t{kAMDNotConnected}},
          std::pair{"Pair=garbled", int32_t{kAMDBadReply}},
          std::pair{"Pair=error:PairingDialogResponsePending", int32_t{-19}}}) {
        ASSERT_EQ(md.AMDeviceConnect(device), 0);
        phone().faults().add(parseFault("lockdown/" + std::string(fault)));
        EXPECT_EQ(md.AMDevicePair(device), status) << fault;
        EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Pairing, ::testing::ValuesIn(kKinds),
                         [](const auto& param) { return param.param.name; });

// ------------------------------------------------------------------ all together

TEST_F(Secure, EverySessionCanBeHadHere) {
    EXPECT_EQ(md.AMDeviceCheckSessionSupport(), 0);
}

TEST_F(Secure, SessionsOfSeveralPhonesGoOnAtOnce) {
    const auto second = makePhone("second", {.session = SessionKind::Modern});
    bus().plug(second);
    ASSERT_TRUE(watcher.waitForEvents(2));
    std::atomic<int> failures = 0;
    const auto work = [&](am_device* one) {
        for (int round = 0; round < 10; ++round) {
            const bool done = md.AMDeviceConnect(one) == 0 &&
                              md.AMDeviceValidatePairing(one) == 0 &&
                              md.AMDeviceStartSession(one) == 0 &&
                              md.AMDeviceStopSession(one) == 0 && md.AMDeviceDisconnect(one) == 0;
            failures += done ? 0 : 1;
        }
    };
    std::thread other(work, watcher.events[1].device);
    work(watcher.events[0].device);
    other.join();
    EXPECT_EQ(failures, 0);
}

} // namespace
} // namespace krl::provider::testing
