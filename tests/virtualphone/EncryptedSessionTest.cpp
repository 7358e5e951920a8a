// Encrypted sessions, as clients that share no code with the phone see them.

#include "tests/support/Process.h"
#include "tests/support/VirtualPhoneFixture.h"
#include "tests/virtualphone/WireClient.h"

#include <gmock/gmock.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <thread>

namespace virtualphone::testing {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// Lets one program on a unix socket talk to a socket of ours, byte for byte.
class Relay {
public:
    Relay(const std::string& path, int other) : other_(other) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const auto* generic = reinterpret_cast<const sockaddr*>(&address);
        if (::bind(listener_, generic, sizeof address) != 0 || ::listen(listener_, 1) != 0) {
            throw std::runtime_error("cannot listen on " + path);
        }
        thread_ = std::thread([this] { carry(); });
    }

    ~Relay() {
        ::shutdown(listener_, SHUT_RDWR);
        thread_.join();
        ::close(listener_);
    }

    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

private:
    void carry() const {
        const int program = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (program < 0) {
            return;
        }
        pollfd ends[] = {{program, POLLIN, 0}, {other_, POLLIN, 0}};
        bool goesOn = true;
        while (goesOn && ::poll(ends, 2, -1) > 0) {
            goesOn = (ends[0].revents == 0 || carryOne(program, other_)) &&
                     (ends[1].revents == 0 || carryOne(other_, program));
        }
        ::close(program);
    }

    static bool carryOne(int from, int to) {
        std::array<char, 4096> bytes;
        const ssize_t count = ::recv(from, bytes.data(), bytes.size(), 0);
        return count > 0 &&
               ::send(to, bytes.data(), static_cast<size_t>(count), MSG_NOSIGNAL) == count;
    }

    const int other_;
    int listener_ = -1;
    std::thread thread_;
};

class Encrypted : public VirtualPhoneTest {
protected:
    explicit Encrypted(SessionKind kind) { options.session = kind; }

    // A part of this computer's pair record, put into a file.
    std::string recordFile(const char* key) {
        const WireSocket mux(bus());
        const MuxReply reply = askMux(
            mux, {{"MessageType", text("ReadPairRecord")}, {"PairRecordID", text(phone().udid())}});
        const nlohmann::json record =
            parsedList(reply.list.at("PairRecordData").get<std::string>());
        const std::filesystem::path path = temporaryFolder() / key;
        std::ofstream(path) << record.at(key).get<std::string>();
        return path.string();
    }

    // What openssl says to a phone that waits for a handshake, with the right keys in its hands.
    Outcome openssl(std::vector<std::string> arguments) {
        const WireSocket lockdown = connectLockdown(bus(), id());
        startSession(lockdown, bus());
        const std::string path = (temporaryFolder() / "relay").string();
        std::filesystem::remove(path);
        const Relay relay(path, lockdown.descriptor());
        std::vector<std::string> command = {"openssl", "s_client",
                                            "-unix",   path,
                                            "-cert",   recordFile("HostCertificate"),
                                            "-key",    recordFile("HostPrivateKey"),
                                            "-brief"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        Process process(command);
        process.closeInput();
        const std::string output = process.readAll();
        return {process.wait(), output};
    }

    // Of clients that are gone.
    std::vector<LogEntry> handshakes() {
        EXPECT_TRUE(bus().waitForConnections(0));
        std::vector<LogEntry> found;
        for (const LogEntry& entry : log().entries()) {
            if (entry.request == "Handshake") {
                found.push_back(entry);
            }
        }
        return found;
    }
};

class ModernSession : public Encrypted {
protected:
    ModernSession() : Encrypted(SessionKind::Modern) {}
};

class EarlySession : public Encrypted {
protected:
    EarlySession() : Encrypted(SessionKind::Ssl3) {}
};

#define SKIP_WITHOUT(program)                                                                      \
    if (!isInstalled(program)) {                                                                   \
        GTEST_SKIP() << program << " is not installed";                                            \
    }

TEST_F(ModernSession, IsSpokenByOpenssl) {
    SKIP_WITHOUT("openssl");
    const Outcome outcome = openssl({"-tls1_2"});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("CONNECTION ESTABLISHED"));
}

TEST_F(EarlySession, IsOutOfReachForOpensslWhateverItIsTold) {
    SKIP_WITHOUT("openssl");
    const std::vector<std::vector<std::string>> attempts = {
        {},
        {"-tls1_2"},
        {"-tls1", "-cipher", "ALL:@SECLEVEL=0"},
        {"-cipher", "ALL:@SECLEVEL=0", "-legacy_server_connect"}};
    for (const auto& arguments : attempts) {
        const Outcome outcome = openssl(arguments);
        EXPECT_NE(outcome.status, 0) << outcome.output;
        EXPECT_THAT(outcome.output, Not(HasSubstr("CONNECTION ESTABLISHED")));
    }
    ASSERT_EQ(handshakes().size(), attempts.size());
    for (const LogEntry& entry : handshakes()) {
        EXPECT_THAT(entry.error, Not(::testing::IsEmpty()));
    }
}

TEST_F(ModernSession, IsSpokenByThePeersTools) {
    SKIP_WITHOUT("ideviceinfo");
    const Outcome name = run({"ideviceinfo", "-k", "DeviceName"});
    EXPECT_EQ(name.status, 0) << name.output;
    EXPECT_EQ(name.output, "Virtual Phone\n");
    EXPECT_THAT(handshakes(), Contains(Field(&LogEntry::name, StartsWith("TLS 1"))));
    EXPECT_EQ(run({"idevicename", "Another Name"}).status, 0) << "needs the session";
    EXPECT_THAT(run({"ideviceinfo"}).output, HasSubstr("DeviceName: Another Name\n"));
}

TEST_F(ModernSession, ThePeersToolsPairAndUnpair) {
    SKIP_WITHOUT("idevicepair");
    EXPECT_THAT(run({"idevicepair", "unpair"}).output, StartsWith("SUCCESS"));
    EXPECT_FALSE(bus().hasPairRecord(phone().udid()));
    EXPECT_FALSE(phone().trusts(bus().hostId()));
    EXPECT_THAT(run({"idevicepair", "pair"}).output, StartsWith("SUCCESS"));
    EXPECT_TRUE(bus().hasPairRecord(phone().udid()));
    EXPECT_THAT(run({"idevicepair", "validate"}).output, StartsWith("SUCCESS"));
    log().clear();
    EXPECT_EQ(run({"ideviceinfo", "-k", "DeviceName"}).output, "Virtual Phone\n");
    ASSERT_EQ(handshakes().size(), 1u);
    EXPECT_THAT(handshakes().front().name, StartsWith("TLS 1")) << "with the tool's own keys";
}

TEST_F(EarlySession, IsOutOfReachForThePeersTools) {
    SKIP_WITHOUT("ideviceinfo");
    const Outcome outcome = run({"ideviceinfo", "-k", "DeviceName"});
    EXPECT_NE(outcome.status, 0);
    ASSERT_EQ(handshakes().size(), 1u);
    EXPECT_THAT(handshakes().front().error, Not(::testing::IsEmpty()));
}

TEST_F(EarlySession, PairingAsksForCertificatesThatCanBeRead) {
    const WireSocket lockdown = connectLockdown(bus(), id());
    const nlohmann::json answer =
        ask(lockdown, {{"Request", text("Pair")}, {"PairRecord", pairRecord("A-NEW-HOST")}});
    EXPECT_EQ(answer.at("Error"), "InvalidPairRecord");
    EXPECT_FALSE(phone().trusts("A-NEW-HOST"));
}

TEST_F(EarlySession, NonsenseInsteadOfAHandshakeEndsTheConnection) {
    WireSocket lockdown = connectLockdown(bus(), id());
    startSession(lockdown, bus());
    lockdown.send(std::string(1000, 'x'));
    while (!lockdown.receive(1).empty()) { // an alert at most
    }
    lockdown.close();
    EXPECT_THAT(handshakes(), Contains(Field(&LogEntry::error, Not(::testing::IsEmpty()))));
}

TEST_F(EarlySession, AClientThatSaysNothingIsGoneWithTheUnplugging) {
    const WireSocket lockdown = connectLockdown(bus(), id());
    startSession(lockdown, bus());
    EXPECT_TRUE(bus().unplug(id()));
    EXPECT_TRUE(lockdown.isClosed());
}

class ClearPhone : public VirtualPhoneTest {
protected:
    ClearPhone() { options.sessionNeedsValidation = false; }
};

TEST_F(ClearPhone, SaysSo) {
    const WireSocket lockdown = connectLockdown(bus(), id());
    const nlohmann::json answer =
        ask(lockdown, {{"Request", text("StartSession")}, {"HostID", text(bus().hostId())}});
    EXPECT_EQ(answer.at("EnableSessionSSL"), false);
}

} // namespace
} // namespace virtualphone::testing
