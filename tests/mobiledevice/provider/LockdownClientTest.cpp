#include "mobiledevice/provider/services/LockdownClient.h"

#include "mobiledevice/provider/services/LockdownErrors.h"
#include "tests/mobiledevice/provider/PlistMessages.h"
#include "tests/mobiledevice/provider/SocketPair.h"
#include "tests/plist/BinaryList.h"

#include <MobileDevice/MobileDevice.h>

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <thread>

namespace krl::provider::testing {
namespace {

const char* const kRecord = "<dict>"
                            "<key>HostID</key><string>HOST</string>"
                            "<key>SystemBUID</key><string>BUID</string>"
                            "<key>DeviceCertificate</key><data>AAAA</data>"
                            "<key>HostPrivateKey</key><data>AAAA</data>"
                            "<key>RootPrivateKey</key><data>AAAA</data>"
                            "</dict>";

PairRecord recordOf(const std::string& dictionary) {
    const std::string xml = xmlDocument(dictionary);
    return PairRecord::parse(std::as_bytes(std::span(xml))).value();
}

// What the client does with the channel when sessions are encrypted.
struct SecurityLog {
    int32_t beginStatus = 0;
    int begun = 0;
    int ended = 0;
    std::optional<Protocol> protocol;
};

std::set<std::string> keysOf(const PlistRef& dictionary) {
    std::set<std::string> keys;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(dictionary.get(), &iterator);
    const std::unique_ptr<void, decltype(&std::free)> owned(iterator, &std::free);
    char* key = nullptr;
    plist_t value = nullptr;
    for (plist_dict_next_item(dictionary.get(), iterator, &key, &value); key != nullptr;
         plist_dict_next_item(dictionary.get(), iterator, &key, &value)) {
        keys.insert(key);
        std::free(key);
    }
    return keys;
}

class LoggedSecurity final : public SessionSecurity {
public:
    explicit LoggedSecurity(SecurityLog& log) : log_(log) {}

    int32_t begin(Channel&, const PairRecord&, Protocol protocol) override {
        log_.protocol = protocol;
        ++log_.begun;
        return log_.beginStatus;
    }

    void end(Channel&) override { ++log_.ended; }

private:
    SecurityLog& log_;
};

int32_t validate(LockdownClient& client) {
    return client.validatePair(recordOf(kRecord));
}

int32_t startSession(LockdownClient& client) {
    return client.startSession(recordOf(kRecord), "BUID", Protocol::Ssl3).status;
}

int32_t startService(LockdownClient& client) {
    ServiceAddress address;
    return client.startService("com.apple.afc", address);
}

int32_t getName(LockdownClient& client) {
    PlistRef answer;
    return client.getValue(std::nullopt, "DeviceName", answer);
}

TEST(LockdownLists, AFewBytesThatStandForMillionsOfValuesAreNoAnswer) {
    SocketPair pair;
    LockdownClient client(pair.channel(), std::make_unique<ClearSessionsOnly>());
    pair.say(framed(plist::testing::BinaryList::bomb(24, 2)));
    EXPECT_EQ(getName(client), kAMDBadReply);
}

TEST(LockdownLists, NestedBeyondReasonAreNoAnswer) {
    SocketPair pair;
    LockdownClient client(pair.channel(), std::make_unique<ClearSessionsOnly>());
    std::string nested;
    while (nested.size() < 1'000'000) {
        nested += "<array>";
    }
    std::thread speaker([&] { pair.say(framed(xmlDocument(nested))); });
    EXPECT_EQ(getName(client), kAMDBadReply);
    speaker.join();
}

struct Request {
    const char* name;
    const char* wireName;
    int32_t (*call)(LockdownClient&);
    std::vector<std::pair<std::string, std::string>> answer; // besides Request and Result
};

void PrintTo(const Request& request, std::ostream* stream) {
    *stream << request.name;
}

const Request kRequests[] = {
    {"Validate", "ValidatePair", validate, {}},
    {"StartSession",
     "StartSession",
     startSession,
     {{"SessionID", xmlString("S1")}, {"EnableSessionSSL", "<false/>"}}},
    {"StartService",
     "StartService",
     startService,
     {{"Service", xmlString("com.apple.afc")}, {"Port", "<integer>1234</integer>"}}},
    {"GetValue",
     "GetValue",
     getName,
     {{"Key", xmlString("DeviceName")}, {"Value", xmlString("My Phone")}}},
};

using Entries = std::vector<std::pair<std::string, std::string>>;

Entries operator+(Entries left, const Entries& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class LockdownRequest : public ::testing::TestWithParam<Request> {
protected:
    static Entries named(const std::string& name) { return {{"Request", xmlString(name)}}; }

    static Entries success() {
        return named(GetParam().wireName) + Entries{{"Result", xmlString("Success")}} +
               GetParam().answer;
    }

    static Entries failure(const std::string& error) {
        return named(GetParam().wireName) +
               Entries{{"Result", xmlString("Failure")}, {"Error", xmlString(error)}};
    }

    int32_t call() { return GetParam().call(client); }

    // The status of the call on a connection of its own with this for an answer, after which the
    // connection must be at its end.
    static int32_t endingWith(const std::string& bytes) {
        SocketPair pair;
        LockdownClient client(pair.channel(), std::make_unique<ClearSessionsOnly>());
        std::thread speaker([&] {
            pair.say(bytes);
            pair.endSaying();
        });
        const int32_t status = GetParam().call(client);
        EXPECT_EQ(GetParam().call(client), kAMDNotConnected);
        speaker.join();
        return status;
    }

    SocketPair pair;
    SecurityLog security;
    LockdownClient client{pair.channel(), std::make_unique<LoggedSecurity>(security)};
};

TEST_P(LockdownRequest, SucceedsWhenEarlyFirmwareSaysSuccess) {
    pair.say(message(success()));
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(stringAt(heardMessage(pair), "Request"), GetParam().wireName);
    EXPECT_FALSE(pair.hearsSomething(std::chrono::milliseconds(0)));
}

TEST_P(LockdownRequest, SucceedsWhenLaterFirmwareSaysNothing) {
    pair.say(message(named(GetParam().wireName) + GetParam().answer));
    EXPECT_EQ(call(), 0);
}

TEST_P(LockdownRequest, SucceedsWithABinaryAnswer) {
    pair.say(framed(binary(xmlDocument(xmlDictionary(success())))));
    EXPECT_EQ(call(), 0);
}

TEST_P(LockdownRequest, FailsWithTheNumberOfTheErrorAndGoesOn) {
    pair.say(message(failure("InvalidHostID")));
    EXPECT_EQ(call(), -21);
    pair.say(message(named(GetParam().wireName) + Entries{{"Error", xmlString("GetProhibited")}}));
    EXPECT_EQ(call(), -13);
    pair.say(message(success()));
    EXPECT_EQ(call(), 0);
}

TEST_P(LockdownRequest, FailsAlsoWhenTheErrorHasNoNumber) {
    const Entries named = this->named(GetParam().wireName);
    const Entries failures[] = {
        failure("SomethingNew"),
        failure(""),
        named + Entries{{"Result", xmlString("Failure")}},
        named + Entries{{"Error", "<integer>0</integer>"}},
        // An error is an error whatever else is said.
        success() + Entries{{"Error", xmlString("SomethingNew")}},
    };
    for (const Entries& entries : failures) {
        SCOPED_TRACE(xmlDictionary(entries));
        pair.say(message(entries));
        EXPECT_EQ(call(), kAMDRefused);
    }
}

TEST_P(LockdownRequest, RefusesWhatIsNoAnswerToIt) {
    const Entries named = this->named(GetParam().wireName);
    const std::string bad[] = {
        message(this->named("QueryType") + Entries{{"Result", xmlString("Success")}} +
                GetParam().answer),
        message(Entries{{"Result", xmlString("Success")}} + GetParam().answer),
        message(Entries{{"Request", "<integer>1</integer>"}, {"Result", xmlString("Success")}} +
                GetParam().answer),
        message(named + Entries{{"Result", xmlString("Maybe")}} + GetParam().answer),
        message(named + Entries{{"Result", "<true/>"}} + GetParam().answer),
        message(this->named("QueryType") + Entries{{"Error", xmlString("InvalidHostID")}}),
        message({}),
        framed(""),
        framed("Success"),
        framed(xmlDocument("<array/>")),
        framed(xmlDocument("<string>Success</string>")),
        framed(xmlDocument(xmlDictionary(success())).substr(0, 60)),
        framed(std::string(2000, '\xAA')),
        framed(binary(xmlDocument(xmlDictionary(success()))).substr(0, 70)),
        "\x7F\xFF\xFF\xFF" + std::string(5000, 'x'),
        std::string("\x00\x40\x00\x01", 4) + std::string(5000, 'x'),
    };
    for (const std::string& bytes : bad) {
        SCOPED_TRACE(bytes.substr(4));
        EXPECT_EQ(endingWith(bytes), kAMDBadReply);
    }
}

TEST_P(LockdownRequest, NeverSucceedsWithAnAnswerCutAnywhere) {
    const std::string good = message(success());
    for (size_t length = 0; length < good.size(); ++length) {
        SCOPED_TRACE(length);
        EXPECT_EQ(endingWith(good.substr(0, length)), kAMDNotConnected);
    }
}

TEST_P(LockdownRequest, NeverSucceedsWithAnAnswerThatIsShortByItsOwnLength) {
    std::string document = xmlDocument(xmlDictionary(success()));
    document.pop_back(); // the line end says nothing
    for (size_t length = 0; length < document.size(); ++length) {
        SCOPED_TRACE(length);
        EXPECT_EQ(endingWith(framed(document.substr(0, length))), kAMDBadReply);
    }
    document = binary(document);
    for (size_t length = 0; length < document.size(); ++length) {
        SCOPED_TRACE(length);
        EXPECT_EQ(endingWith(framed(document.substr(0, length))), kAMDBadReply);
    }
}

TEST_P(LockdownRequest, NeverSucceedsWithAnAnswerThatGoesOnBehindItsEnd) {
    const std::string document = xmlDocument(xmlDictionary(success()));
    for (const std::string& extra : {std::string("x"), std::string(8, '\0'), document}) {
        EXPECT_EQ(endingWith(framed(document + extra + "x")), kAMDBadReply);
        EXPECT_EQ(endingWith(framed(binary(document) + extra)), kAMDBadReply);
    }
}

TEST_P(LockdownRequest, EndsWhenThePhoneIsSilent) {
    const ShortTimeout timeout(30);
    EXPECT_EQ(call(), kAMDTimedOut);
    pair.say(message(success()));
    EXPECT_EQ(call(), kAMDNotConnected);
}

TEST_P(LockdownRequest, EndsWhenThePhoneIsGone) {
    pair.closePeer();
    EXPECT_EQ(call(), kAMDNotConnected);
    EXPECT_EQ(call(), kAMDNotConnected);
}

INSTANTIATE_TEST_SUITE_P(Provider, LockdownRequest, ::testing::ValuesIn(kRequests),
                         [](const auto& param) { return param.param.name; });

// ------------------------------------------------------------------ request by request

class Lockdown : public ::testing::Test {
protected:
    void sayAnswer(const std::string& request, const Entries& entries) {
        pair.say(message(
            Entries{{"Request", xmlString(request)}, {"Result", xmlString("Success")}} + entries));
    }

    SocketPair pair;
    SecurityLog security;
    LockdownClient client{pair.channel(), std::make_unique<LoggedSecurity>(security)};
};

TEST_F(Lockdown, PairingIsValidatedWithoutThePrivateKeys) {
    sayAnswer("ValidatePair", {});
    EXPECT_EQ(validate(client), 0);
    const PlistRef request = heardMessage(pair);
    EXPECT_EQ(stringAt(request, "ProtocolVersion"), "2");
    EXPECT_TRUE(stringAt(request, "Label").has_value());
    const PlistRef record(plist_copy(plist_dict_get_item(request.get(), "PairRecord")));
    EXPECT_EQ(stringAt(record, "HostID"), "HOST");
    EXPECT_EQ(stringAt(record, "SystemBUID"), "BUID");
    EXPECT_TRUE(hasKey(record, "DeviceCertificate"));
    EXPECT_FALSE(hasKey(record, "HostPrivateKey"));
    EXPECT_FALSE(hasKey(record, "RootPrivateKey"));
}

TEST_F(Lockdown, OfAPairRecordThePhoneIsShownWhatIsListedAndNothingElse) {
    constexpr const char* kData = "<data>AAAA</data>";
    Entries all{{"HostID", xmlString("HOST")}, {"SystemBUID", xmlString("BUID")}};
    for (const char* key : {"DeviceCertificate", "HostCertificate", "RootCertificate",
                            "HostPrivateKey", "RootPrivateKey", "EscrowBag", "SomethingNew"}) {
        all.emplace_back(key, kData);
    }
    all.emplace_back("WiFiMACAddress", xmlString("00:11:22:33:44:55"));
    PairRecord record = recordOf(xmlDictionary(all));
    const std::pair<const char*, std::function<int32_t()>> requests[] = {
        {"ValidatePair", [&] { return client.validatePair(record); }},
        {"Pair", [&] { return client.pair(record); }},
        {"Unpair", [&] { return client.unpair(record); }}};
    for (const auto& [name, request] : requests) {
        sayAnswer(name, {});
        EXPECT_EQ(request(), 0);
        const PlistRef shown = dictionaryAt(heardMessage(pair), "PairRecord");
        EXPECT_EQ(keysOf(shown), (std::set<std::string>{"DeviceCertificate", "HostCertificate",
                                                        "HostID", "RootCertificate", "SystemBUID"}))
            << name;
    }
}

TEST_F(Lockdown, ASessionIsStartedWithTheHostAndStoppedWithItsId) {
    sayAnswer("StartSession", {{"SessionID", xmlString("S1")}, {"EnableSessionSSL", "<false/>"}});
    EXPECT_EQ(startSession(client), 0);
    const PlistRef start = heardMessage(pair);
    EXPECT_EQ(stringAt(start, "HostID"), "HOST");
    EXPECT_EQ(stringAt(start, "SystemBUID"), "BUID");
    sayAnswer("StopSession", {});
    EXPECT_EQ(client.stopSession(), 0);
    const PlistRef stop = heardMessage(pair);
    EXPECT_EQ(stringAt(stop, "Request"), "StopSession");
    EXPECT_EQ(stringAt(stop, "SessionID"), "S1");
    EXPECT_EQ(security.begun, 0);
    EXPECT_EQ(security.ended, 0);
}

TEST_F(Lockdown, ASessionNeedsNoSystemBuid) {
    sayAnswer("StartSession", {{"SessionID", xmlString("S1")}});
    EXPECT_EQ(client.startSession(recordOf(kRecord), std::nullopt, Protocol::Tls).status, 0);
    EXPECT_FALSE(hasKey(heardMessage(pair), "SystemBUID"));
}

TEST_F(Lockdown, ASessionWithoutAnIdIsABadReply) {
    for (const Entries& entries :
         {Entries{}, Entries{{"SessionID", xmlString("")}},
          Entries{{"SessionID", "<integer>1</integer>"}},
          Entries{{"SessionID", xmlString("S1")}, {"EnableSessionSSL", xmlString("no")}}}) {
        SocketPair other;
        LockdownClient otherClient(other.channel(), std::make_unique<ClearSessionsOnly>());
        other.say(message(Entries{{"Request", xmlString("StartSession")}} + entries));
        EXPECT_EQ(startSession(otherClient), kAMDBadReply);
        EXPECT_EQ(otherClient.stopSession(), kAMDNoSession);
    }
}

TEST_F(Lockdown, NoSessionIsStoppedThatIsNotThere) {
    EXPECT_EQ(client.stopSession(), kAMDNoSession);
    sayAnswer("StartSession", {{"SessionID", xmlString("S1")}});
    sayAnswer("StopSession", {});
    EXPECT_EQ(startSession(client), 0);
    EXPECT_EQ(client.stopSession(), 0);
    EXPECT_EQ(client.stopSession(), kAMDNoSession);
}

TEST_F(Lockdown, AnEncryptedSessionIsBegunAndEndedAroundItsRequests) {
    sayAnswer("StartSession", {{"SessionID", xmlString("S1")}, {"EnableSessionSSL", "<true/>"}});
    EXPECT_EQ(startSession(client), 0);
    EXPECT_EQ(security.begun, 1);
    EXPECT_EQ(security.protocol, Protocol::Ssl3) << "the one that was asked for";
    sayAnswer("StopSession", {});
    EXPECT_EQ(client.stopSession(), 0);
    EXPECT_EQ(security.ended, 1);
}

TEST_F(Lockdown, AnEncryptedSessionThatCannotBeHadEndsTheConnection) {
    security.beginStatus = kAMDSessionNotSupported;
    sayAnswer("StartSession", {{"SessionID", xmlString("S1")}, {"EnableSessionSSL", "<true/>"}});
    EXPECT_EQ(startSession(client), kAMDSessionNotSupported);
    EXPECT_EQ(client.stopSession(), kAMDNoSession);
    EXPECT_EQ(getName(client), kAMDNotConnected);
}

TEST_F(Lockdown, WithoutNssOnlyClearSessionsAreToBeHad) {
    ClearSessionsOnly clearOnly;
    EXPECT_EQ(clearOnly.begin(*pair.channel(), recordOf(kRecord), Protocol::Tls),
              kAMDSessionNotSupported);
}

TEST_F(Lockdown, AServiceHasAPort) {
    sayAnswer("StartService",
              {{"Service", xmlString("com.apple.afc")}, {"Port", "<integer>65535</integer>"}});
    ServiceAddress address;
    EXPECT_EQ(client.startService("com.apple.afc", address), 0);
    EXPECT_EQ(address.port, 65535);
    EXPECT_FALSE(address.isSecure);
    EXPECT_EQ(stringAt(heardMessage(pair), "Service"), "com.apple.afc");
}

TEST_F(Lockdown, AServiceWithoutAPossiblePortIsABadReply) {
    for (const Entries& entries :
         {Entries{}, Entries{{"Port", "<integer>0</integer>"}},
          Entries{{"Port", "<integer>65536</integer>"}}, Entries{{"Port", "<integer>-1</integer>"}},
          Entries{{"Port", xmlString("1234")}},
          Entries{{"Service", xmlString("com.apple.afc2")}, {"Port", "<integer>1</integer>"}}}) {
        SocketPair other;
        LockdownClient otherClient(other.channel(), std::make_unique<ClearSessionsOnly>());
        other.say(message(Entries{{"Request", xmlString("StartService")}} + entries));
        EXPECT_EQ(startService(otherClient), kAMDBadReply);
    }
}

TEST_F(Lockdown, AServiceIsEncryptedWhenThePhoneSaysSoAndOnlyThen) {
    for (const bool isSecure : {true, false}) {
        sayAnswer("StartService", {{"Port", "<integer>1234</integer>"},
                                   {"EnableServiceSSL", isSecure ? "<true/>" : "<false/>"}});
        ServiceAddress address;
        EXPECT_EQ(client.startService("com.apple.afc", address), 0);
        EXPECT_EQ(address.isSecure, isSecure);
    }
    sayAnswer("StartService",
              {{"Port", "<integer>1234</integer>"}, {"EnableServiceSSL", xmlString("yes")}});
    EXPECT_EQ(startService(client), kAMDBadReply);
}

TEST_F(Lockdown, AValueIsAskedForByDomainAndKeyWhereThereAreAny) {
    const std::optional<std::string> texts[] = {std::nullopt, "x.y"};
    for (const auto& domain : texts) {
        for (const auto& key : texts) {
            sayAnswer("GetValue", {{"Value", "<true/>"}});
            PlistRef answer;
            EXPECT_EQ(client.getValue(domain, key, answer), 0);
            EXPECT_EQ(booleanAt(answer, "Value"), true);
            const PlistRef request = heardMessage(pair);
            EXPECT_EQ(stringAt(request, "Domain"), domain);
            EXPECT_EQ(stringAt(request, "Key"), key);
        }
    }
}

TEST_F(Lockdown, TheValueOfAnotherKeyIsABadReply) {
    sayAnswer("GetValue", {{"Key", xmlString("DeviceClass")}, {"Value", xmlString("iPhone")}});
    EXPECT_EQ(getName(client), kAMDBadReply);
}

TEST(LockdownErrors, HaveTheirNumbers) {
    const std::pair<const char*, int32_t> known[] = {{"MissingKey", -11},
                                                     {"MissingValue", -12},
                                                     {"GetProhibited", -13},
                                                     {"SetProhibited", -14},
                                                     {"PasswordProtected", -17},
                                                     {"UserDeniedPairing", -18},
                                                     {"MissingHostID", -20},
                                                     {"InvalidHostID", -21},
                                                     {"SessionActive", -22},
                                                     {"SessionInactive", -23},
                                                     {"MissingSessionID", -24},
                                                     {"InvalidSessionID", -25},
                                                     {"MissingService", -26},
                                                     {"InvalidService", -27},
                                                     {"ServiceLimit", -28},
                                                     {"MissingPairRecord", -29},
                                                     {"InvalidPairRecord", -31},
                                                     {"ServiceProhibited", -34},
                                                     {"invalidhostid", kAMDRefused},
                                                     {"", kAMDRefused},
                                                     {"PairingDialogResponsePending", -19}};
    for (const auto& [name, number] : known) {
        EXPECT_EQ(lockdownErrorNumber(name), number) << name;
    }
}

TEST(PairRecordTest, NeedsAHost) {
    const auto parsed = [](const std::string& text) {
        return PairRecord::parse(std::as_bytes(std::span(text))).has_value();
    };
    EXPECT_TRUE(parsed(xmlDocument(kRecord)));
    EXPECT_TRUE(parsed(binary(xmlDocument(kRecord))));
    EXPECT_FALSE(parsed(""));
    EXPECT_FALSE(parsed("not a property list"));
    EXPECT_FALSE(parsed(xmlDocument("<array/>")));
    EXPECT_FALSE(parsed(xmlDocument("<dict/>")));
    EXPECT_FALSE(parsed(xmlDocument("<dict><key>HostID</key><integer>1</integer></dict>")));
}

TEST(PairRecordTest, MayLackTheSystemBuid) {
    EXPECT_EQ(recordOf(kRecord).systemBuid(), "BUID");
    EXPECT_EQ(recordOf("<dict><key>HostID</key><string>H</string></dict>").systemBuid(),
              std::nullopt);
}

} // namespace
} // namespace krl::provider::testing
