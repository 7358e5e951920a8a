// Lockdown, byte by byte.

#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

namespace virtualphone::testing {
namespace {

using nlohmann::json;

class LockdownWire : public VirtualPhoneTest {
protected:
    WireSocket connect() { return connectLockdown(bus(), id()); }

    json getValue(const WireSocket& socket, const std::string& key,
                  const std::string& domain = {}) {
        if (domain.empty()) {
            return ask(socket, {{"Request", text("GetValue")}, {"Key", text(key)}});
        }
        return ask(socket,
                   {{"Request", text("GetValue")}, {"Domain", text(domain)}, {"Key", text(key)}});
    }

    json validate(const WireSocket& socket, const std::string& host) {
        return ask(socket, {{"Request", text("ValidatePair")},
                            {"PairRecord", pairRecord(host)},
                            {"ProtocolVersion", text("2")}});
    }

    json openSession(const WireSocket& socket, const std::string& host) {
        return ask(socket, {{"Request", text("StartSession")},
                            {"HostID", text(host)},
                            {"SystemBUID", text(bus().systemBuid())}});
    }

    json startService(const WireSocket& socket, const std::string& name) {
        return ask(socket, {{"Request", text("StartService")}, {"Service", text(name)}});
    }
};

// An answer that says nothing but that the request failed.
json failure(const std::string& request, const std::string& error) {
    return {{"Request", request}, {"Result", "Failure"}, {"Error", error}};
}

TEST_F(LockdownWire, QueryTypeNamesTheService) {
    EXPECT_EQ(ask(connect(), {{"Request", text("QueryType")}}),
              (json{{"Request", "QueryType"},
                    {"Result", "Success"},
                    {"Type", "com.apple.mobile.lockdown"}}));
}

TEST_F(LockdownWire, AValueComesWithItsKeyAndDomain) {
    const WireSocket socket = connect();
    EXPECT_EQ(getValue(socket, "ProductVersion"), (json{{"Request", "GetValue"},
                                                        {"Result", "Success"},
                                                        {"Key", "ProductVersion"},
                                                        {"Value", "1.1.1"}}));
    EXPECT_EQ(getValue(socket, "FamilyID", "com.apple.mobile.iTunes"),
              (json{{"Request", "GetValue"},
                    {"Result", "Success"},
                    {"Domain", "com.apple.mobile.iTunes"},
                    {"Key", "FamilyID"},
                    {"Value", 10001}}));
}

TEST_F(LockdownWire, WithoutAKeyAllValuesOfTheDomainCome) {
    const WireSocket socket = connect();
    const json values = ask(socket, {{"Request", text("GetValue")}}).at("Value");
    EXPECT_EQ(values.at("DeviceName"), "Virtual Phone");
    EXPECT_EQ(values.at("DeviceClass"), "iPhone");
    EXPECT_EQ(values.at("ProductVersion"), "1.1.1");
    EXPECT_EQ(values.at("BuildVersion"), "3A109a");
    EXPECT_EQ(values.at("ProductType"), "iPhone1,1");
    EXPECT_EQ(values.at("UniqueDeviceID"), phone().udid());
    EXPECT_EQ(values.at("PasswordProtected"), false);
    for (const char* const key :
         {"SerialNumber", "ModelNumber", "ActivationState", "WiFiAddress", "TimeZone"}) {
        EXPECT_TRUE(values.contains(key)) << key;
    }
    EXPECT_THAT(values.at("DevicePublicKey").get<std::string>(),
                ::testing::StartsWith("-----BEGIN RSA PUBLIC KEY-----\n"));
    const json unknown = ask(socket, {{"Request", text("GetValue")}, {"Domain", text("no.such")}});
    EXPECT_EQ(unknown.at("Value"), json::object());
}

TEST_F(LockdownWire, AMissingValueIsAFailureThatSaysSo) {
    json expected = failure("GetValue", "MissingValue");
    expected["Key"] = "NoSuchKey";
    EXPECT_EQ(getValue(connect(), "NoSuchKey"), expected);
}

TEST_F(LockdownWire, ASessionNeedsAValidatedHostOnThisConnection) {
    {
        const WireSocket other = connect();
        EXPECT_EQ(validate(other, bus().hostId()).at("Result"), "Success");
    }
    const WireSocket socket = connect();
    EXPECT_EQ(openSession(socket, bus().hostId()), failure("StartSession", "InvalidHostID"));
    EXPECT_EQ(validate(socket, bus().hostId()),
              (json{{"Request", "ValidatePair"}, {"Result", "Success"}}));
    const json session = openSession(socket, bus().hostId());
    EXPECT_EQ(session.at("Result"), "Success");
    EXPECT_EQ(session.at("EnableSessionSSL"), false);
    EXPECT_FALSE(session.at("SessionID").get<std::string>().empty());
}

TEST_F(LockdownWire, SessionsStartAndStopInOrder) {
    const WireSocket socket = connect();
    const auto stop = [&](const std::string& session) {
        return ask(socket, {{"Request", text("StopSession")}, {"SessionID", text(session)}});
    };
    EXPECT_EQ(ask(socket, {{"Request", text("StartSession")}}),
              failure("StartSession", "MissingHostID"));
    EXPECT_EQ(stop("x"), failure("StopSession", "SessionInactive"));
    const std::string session = startSession(socket, bus());
    EXPECT_EQ(openSession(socket, bus().hostId()), failure("StartSession", "SessionActive"));
    EXPECT_EQ(ask(socket, {{"Request", text("StopSession")}}),
              failure("StopSession", "MissingSessionID"));
    EXPECT_EQ(stop("x"), failure("StopSession", "InvalidSessionID"));
    EXPECT_EQ(stop(session).at("Result"), "Success");
    EXPECT_NE(startSession(socket, bus()), session);
}

TEST_F(LockdownWire, ServicesNeedASession) {
    const WireSocket socket = connect();
    EXPECT_EQ(startService(socket, "com.apple.afc"), failure("StartService", "SessionInactive"));
    startSession(socket, bus());
    EXPECT_EQ(ask(socket, {{"Request", text("StartService")}}),
              failure("StartService", "MissingService"));
    EXPECT_EQ(startService(socket, "com.apple.nonsense"),
              failure("StartService", "InvalidService"));
    EXPECT_EQ(startService(socket, "com.apple.afc").at("Result"), "Success");
}

TEST_F(LockdownWire, EachServiceGetsANewPortGoodForOneConnection) {
    const WireSocket socket = connect();
    startSession(socket, bus());
    const json first = startService(socket, "com.apple.afc");
    const json second = startService(socket, "com.apple.afc");
    EXPECT_EQ(first.at("Service"), "com.apple.afc");
    EXPECT_NE(first.at("Port"), second.at("Port"));
    const auto port = first.at("Port").get<uint16_t>();
    const WireSocket files = connectTo(bus(), id(), port);
    const WireSocket again(bus());
    EXPECT_EQ(askMux(again, {{"MessageType", text("Connect")},
                             {"DeviceID", number(id())},
                             {"PortNumber", number(htons(port))}})
                  .result(),
              3U);
}

TEST_F(LockdownWire, AServiceCanBeReachedAfterItsSessionAndConnectionAreGone) {
    uint16_t port = 0;
    {
        const WireSocket socket = connect();
        const std::string session = startSession(socket, bus());
        port = startService(socket, "com.apple.afc").at("Port").get<uint16_t>();
        ask(socket, {{"Request", text("StopSession")}, {"SessionID", text(session)}});
    }
    EXPECT_NO_THROW(connectTo(bus(), id(), port));
}

TEST_F(LockdownWire, PortsEndWithThePlugging) {
    const WireSocket socket = connect();
    startSession(socket, bus());
    const auto port = startService(socket, "com.apple.afc").at("Port").get<uint16_t>();
    replug();
    EXPECT_THROW(connectTo(bus(), id(), port), std::runtime_error);
}

TEST_F(LockdownWire, PortsRunOutWithAnErrorAndNotBefore) {
    const WireSocket socket = connect();
    startSession(socket, bus());
    json answer;
    int started = 0;
    do {
        answer = startService(socket, "com.apple.afc");
        ++started;
    } while (answer.at("Result") == "Success" && started < 10000);
    EXPECT_GT(started, 1000);
    EXPECT_EQ(answer, failure("StartService", "ServiceLimit"));
}

TEST_F(LockdownWire, PairingMakesAHostTrustedAndUnpairingEndsThat) {
    const WireSocket socket = connect();
    const std::string host = "11111111-2222-3333-4444-555555555555";
    EXPECT_EQ(validate(socket, host), failure("ValidatePair", "InvalidHostID"));
    EXPECT_EQ(openSession(socket, host), failure("StartSession", "InvalidHostID"));
    EXPECT_EQ(
        ask(socket, {{"Request", text("Pair")}, {"PairRecord", pairRecord(host)}}).at("Result"),
        "Success");
    EXPECT_TRUE(phone().trusts(host));
    EXPECT_EQ(openSession(socket, host).at("Result"), "Success");
    const json unpaired =
        ask(socket, {{"Request", text("Unpair")}, {"PairRecord", pairRecord(host)}});
    EXPECT_EQ(unpaired.at("Result"), "Success");
    EXPECT_FALSE(phone().trusts(host));
    EXPECT_EQ(ask(socket, {{"Request", text("Unpair")}, {"PairRecord", pairRecord(host)}}),
              failure("Unpair", "InvalidHostID"));
}

TEST_F(LockdownWire, IncompletePairRecordsAreRefused) {
    const WireSocket socket = connect();
    for (const char* const request : {"Pair", "ValidatePair", "Unpair"}) {
        EXPECT_EQ(ask(socket, {{"Request", text(request)}}), failure(request, "MissingPairRecord"));
        EXPECT_EQ(ask(socket, {{"Request", text(request)}, {"PairRecord", dictionary({})}}),
                  failure(request, "MissingHostID"));
    }
    EXPECT_EQ(ask(socket,
                  {{"Request", text("Pair")}, {"PairRecord", dictionary({{"HostID", text("X")}})}}),
              failure("Pair", "InvalidPairRecord"));
}

TEST_F(LockdownWire, AForgottenHostIsRefused) {
    phone().forgetHosts();
    EXPECT_EQ(validate(connect(), bus().hostId()), failure("ValidatePair", "InvalidHostID"));
}

TEST_F(LockdownWire, TheNameCanBeSetInASessionAndOutlivesTheConnection) {
    const auto setName = [](const WireSocket& socket) {
        return ask(socket, {{"Request", text("SetValue")},
                            {"Key", text("DeviceName")},
                            {"Value", text("Renamed")}});
    };
    {
        const WireSocket socket = connect();
        EXPECT_EQ(setName(socket), failure("SetValue", "SessionInactive"));
        startSession(socket, bus());
        EXPECT_EQ(setName(socket).at("Result"), "Success");
    }
    replug();
    EXPECT_EQ(getValue(connect(), "DeviceName").at("Value"), "Renamed");
}

TEST_F(LockdownWire, WhatThePhoneIsCannotBeSet) {
    const WireSocket socket = connect();
    startSession(socket, bus());
    EXPECT_EQ(
        ask(socket,
            {{"Request", text("SetValue")}, {"Key", text("UniqueDeviceID")}, {"Value", text("x")}}),
        failure("SetValue", "SetProhibited"));
    EXPECT_EQ(ask(socket, {{"Request", text("RemoveValue")}, {"Key", text("DeviceClass")}}),
              failure("RemoveValue", "SetProhibited"));
    EXPECT_EQ(ask(socket, {{"Request", text("SetValue")}, {"Value", text("x")}}),
              failure("SetValue", "MissingKey"));
    EXPECT_EQ(ask(socket, {{"Request", text("SetValue")}, {"Key", text("DeviceName")}}),
              failure("SetValue", "MissingValue"));
}

TEST_F(LockdownWire, OtherDomainsCanBeSetAndRemoved) {
    const WireSocket socket = connect();
    startSession(socket, bus());
    const std::string domain = "com.example.test";
    EXPECT_EQ(ask(socket, {{"Request", text("SetValue")},
                           {"Domain", text(domain)},
                           {"Key", text("Color")},
                           {"Value", text("red")}})
                  .at("Result"),
              "Success");
    EXPECT_EQ(getValue(socket, "Color", domain).at("Value"), "red");
    EXPECT_EQ(
        ask(socket,
            {{"Request", text("RemoveValue")}, {"Domain", text(domain)}, {"Key", text("Color")}})
            .at("Result"),
        "Success");
    EXPECT_EQ(getValue(socket, "Color", domain).at("Error"), "MissingValue");
}

TEST_F(LockdownWire, AnUnknownRequestFailsAndTheConnectionLives) {
    const WireSocket socket = connect();
    EXPECT_EQ(ask(socket, {{"Request", text("Nonsense")}}).at("Result"), "Failure");
    EXPECT_EQ(ask(socket, {{"NoRequest", text("at all")}}).at("Result"), "Failure");
    EXPECT_EQ(ask(socket, {{"Request", text("QueryType")}}).at("Result"), "Success");
}

TEST_F(LockdownWire, GoodbyeIsAnsweredThenThePhoneCloses) {
    const WireSocket socket = connect();
    EXPECT_EQ(ask(socket, {{"Request", text("Goodbye")}}),
              (json{{"Request", "Goodbye"}, {"Result", "Success"}}));
    EXPECT_TRUE(socket.isClosed());
}

TEST_F(LockdownWire, RequestsAreLoggedWithTheirSubject) {
    const WireSocket socket = connect();
    startSession(socket, bus());
    startService(socket, "com.apple.afc");
    getValue(socket, "FamilyID", "com.apple.mobile.iTunes");
    const auto entries =
        log().entries([](const LogEntry& entry) { return entry.service == "lockdown"; });
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[0].request, "ValidatePair");
    EXPECT_EQ(entries[0].name, bus().hostId());
    EXPECT_EQ(entries[1].request, "StartSession");
    EXPECT_EQ(entries[1].name, bus().hostId());
    EXPECT_EQ(entries[2].request, "StartService");
    EXPECT_EQ(entries[2].name, "com.apple.afc");
    EXPECT_TRUE(entries[2].port);
    EXPECT_EQ(entries[3].name, "FamilyID");
    EXPECT_EQ(entries[3].domain, "com.apple.mobile.iTunes");
    for (const LogEntry& entry : entries) {
        EXPECT_EQ(entry.phone, phone().udid());
        EXPECT_EQ(entry.connection, entries[0].connection);
    }
}

class UnpairedPhone : public LockdownWire {
protected:
    UnpairedPhone() { options.paired = false; }
};

TEST_F(UnpairedPhone, HasNoRecordAndTrustsNobody) {
    EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
    EXPECT_EQ(validate(connect(), bus().hostId()), failure("ValidatePair", "InvalidHostID"));
}

class PhoneWithPasscode : public LockdownWire {
protected:
    PhoneWithPasscode() {
        options.paired = false;
        options.passwordProtected = true;
    }
};

TEST_F(PhoneWithPasscode, RefusesToPairAndSaysSoInItsValues) {
    const WireSocket socket = connect();
    EXPECT_EQ(ask(socket, {{"Request", text("Pair")}, {"PairRecord", pairRecord("X")}}),
              failure("Pair", "PasswordProtected"));
    EXPECT_EQ(getValue(socket, "PasswordProtected").at("Value"), true);
}

class TrustingPhone : public LockdownWire {
protected:
    TrustingPhone() { options.sessionNeedsValidation = false; }
};

TEST_F(TrustingPhone, StartsASessionWithoutValidation) {
    EXPECT_EQ(openSession(connect(), bus().hostId()).at("Result"), "Success");
}

class ImpatientPhone : public LockdownWire {
protected:
    ImpatientPhone() { options.lockdownIdleTimeout = std::chrono::milliseconds(500); }
};

TEST_F(ImpatientPhone, ClosesAnIdleLockdownConnectionAndNoOther) {
    const AfcWire files(bus(), id());
    EXPECT_TRUE(connect().isClosed());
    EXPECT_TRUE(files.socket.isQuiet());
}

class LaterFirmware : public LockdownWire {
protected:
    LaterFirmware() { options.firmware = "5.0"; }
};

TEST_F(LaterFirmware, SaysSuccessByLeavingTheErrorOut) {
    const WireSocket socket = connect();
    EXPECT_EQ(validate(socket, bus().hostId()), (json{{"Request", "ValidatePair"}}));
    EXPECT_EQ(validate(socket, "X"),
              (json{{"Request", "ValidatePair"}, {"Error", "InvalidHostID"}}));
}

class UnknownFirmware : public LockdownWire {
protected:
    UnknownFirmware() { options.firmware.clear(); }
};

TEST_F(UnknownFirmware, HasNoProductVersion) {
    EXPECT_EQ(getValue(connect(), "ProductVersion").at("Error"), "MissingValue");
}

class BinaryPhone : public LockdownWire {
protected:
    BinaryPhone() { options.binaryReplies = true; }
};

TEST_F(BinaryPhone, AnswersInBinaryLists) {
    const WireSocket socket = connect();
    tell(socket, {{"Request", text("QueryType")}});
    const std::string reply = *receiveFramed(socket);
    EXPECT_THAT(reply, ::testing::StartsWith("bplist00"));
    EXPECT_EQ(parsedList(reply).at("Type"), "com.apple.mobile.lockdown");
}

TEST(PhoneValues, BuildsOfKnownFirmware) {
    const TemporaryFolder folder;

    const struct {
        const char* firmware;
        const char* deviceClass;
        const char* build;
        const char* type;
    } rows[] = {
        {"1.0", "iPhone", "1A543a", "iPhone1,1"},   {"1.0.0", "iPhone", "1A543a", "iPhone1,1"},
        {"1.0.1", "iPhone", "1C25", "iPhone1,1"},   {"1.0.2", "iPhone", "1C28", "iPhone1,1"},
        {"1.1.1", "iPhone", "3A109a", "iPhone1,1"}, {"1.1.1", "iPod", "3A101a", "iPod1,1"},
        {"1.1.2", "iPhone", "3B48b", "iPhone1,1"},  {"1.1.3", "iPhone", "4A93", "iPhone1,1"},
        {"1.1.4", "iPod", "4A102", "iPod1,1"},
    };

    for (const auto& row : rows) {
        Bus bus;
        const uint32_t id = bus.plug(std::make_shared<Phone>(PhoneOptions{
            .root = folder.path(), .firmware = row.firmware, .deviceClass = row.deviceClass}));
        const json values =
            ask(connectLockdown(bus, id), {{"Request", text("GetValue")}}).at("Value");
        EXPECT_EQ(values.at("ProductVersion"), row.firmware);
        EXPECT_EQ(values.at("BuildVersion"), row.build) << row.firmware << row.deviceClass;
        EXPECT_EQ(values.at("ProductType"), row.type);
        EXPECT_EQ(values.at("DeviceClass"), row.deviceClass);
    }
}

TEST(PhoneOptionsCheck, WrongOptionsAreRefusedWithAReason) {
    const TemporaryFolder folder;
    const auto messageOf = [](const PhoneOptions& options) -> std::string {
        try {
            const Phone phone(options);
        } catch (const std::invalid_argument& error) {
            return error.what();
        }
        return "no error";
    };
    EXPECT_THAT(messageOf({}), ::testing::HasSubstr("folder"));
    EXPECT_THAT(messageOf({.root = folder.path(), .name = "\xff"}), ::testing::HasSubstr("UTF-8"));
    EXPECT_THAT(messageOf({.root = folder.path(), .name = "cut \xe2\x82"}),
                ::testing::HasSubstr("UTF-8"));
    EXPECT_THAT(messageOf({.root = folder.path(), .udid = "123"}), ::testing::HasSubstr("40"));
    EXPECT_THAT(messageOf({.root = folder.path(), .udid = std::string(40, 'g')}),
                ::testing::HasSubstr("40"));
    EXPECT_EQ(messageOf({.root = folder.path(), .name = "Zo\xc3\xab \xf0\x9f\x93\xb1"}),
              "no error");
}

TEST(PhoneOptionsCheck, TheUdidFollowsFromTheFolder) {
    const TemporaryFolder folder;
    const Phone first({.root = folder.path() / "a"});
    const Phone again({.root = folder.path() / "x/../a"});
    const Phone other({.root = folder.path() / "b"});
    EXPECT_EQ(first.udid().size(), 40U);
    EXPECT_EQ(first.udid(), again.udid());
    EXPECT_NE(first.udid(), other.udid());
}

TEST(PhoneOptionsCheck, AFreshPhoneHasAMediaFolderWithoutRingtones) {
    const TemporaryFolder folder;
    const Phone phone({.root = folder.path() / "phone"});
    EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "phone/iTunes_Control/iTunes"));
    EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "phone/iTunes_Control/iTunes"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "phone/iTunes_Control/Ringtones"));
}

} // namespace
} // namespace virtualphone::testing
