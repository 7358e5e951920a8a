// doctor: each thing that can stand between a person and a phone, set up as such.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <functional>
#include <ostream>
#include <vector>

using virtualphone::parseFault;
using virtualphone::SessionKind;

namespace vesk::testing {
namespace {

class Doctor : public VeskTest {
protected:
    Doctor() {
        options.name = "My Phone";
        options.session = SessionKind::Ssl3;
    }

    static VeskResult doctor(const std::map<std::string, std::string>& environment = {},
                             const std::vector<std::string>& more = {}) {
        VeskProcess::Options process;
        process.environment = environment;
        std::vector<std::string> arguments = {"doctor", "--wait", "0.5", "--timeout", "1"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return VeskProcess(arguments, process).wait();
    }

    /// The checks that are not good, by name, each with its text and advice.
    static std::map<std::string, std::string> problems(const nlohmann::json& report) {
        std::map<std::string, std::string> found;
        const auto take = [&](const nlohmann::json& checks) {
            for (const auto& check : checks) {
                if (!check.at("good").get<bool>()) {
                    found[check.at("check").get<std::string>()] =
                        check.at("text").get<std::string>() + "\n" +
                        check.at("advice").get<std::string>();
                }
            }
        };
        take(report.at("computer"));
        for (const auto& phone : report.at("phones")) {
            take(phone.at("checks"));
        }
        return found;
    }

    void expectOneProblem(const VeskResult& result, const std::string& check,
                          const std::vector<std::string>& words) {
        EXPECT_THAT(result, ExitsWith(ExitCode::ProblemsFound));
        const nlohmann::json report = result.json();
        EXPECT_EQ(report.at("healthy"), false);
        const auto found = problems(report);
        ASSERT_EQ(found.size(), 1u) << result.out;
        EXPECT_EQ(found.begin()->first, check);
        for (const std::string& word : words) {
            EXPECT_THAT(found.begin()->second, HasSubstr(word));
        }
    }
};

struct Case {
    const char* name;
    std::function<void(virtualphone::PhoneOptions&)> options;
    std::function<void(virtualphone::Bus&, virtualphone::Phone&)> setUp;
    const char* check;
    std::vector<std::string> words;
};

void PrintTo(const Case& one, std::ostream* stream) {
    *stream << one.name;
}

void nothing(virtualphone::PhoneOptions&) {}

void untouched(virtualphone::Bus&, virtualphone::Phone&) {}

std::function<void(virtualphone::Bus&, virtualphone::Phone&)> faulty(const char* fault) {
    return [fault](virtualphone::Bus&, virtualphone::Phone& phone) {
        phone.faults().add(parseFault(fault));
    };
}

void putCatalogue(virtualphone::Phone& phone, const char* text) {
    std::ofstream(phone.options().root / "iTunes_Control/iTunes/Ringtones.plist") << text;
}

const Case kCases[] = {
    {"Unpaired",
     [](auto& options) { options.paired = false; },
     untouched,
     "pair-record",
     {"not paired", "vesk pair --udid "}},
    {"StalePairRecord",
     nothing,
     [](auto&, auto& phone) { phone.forgetHosts(); },
     "pairing",
     {"stale", "vesk pair --udid "}},
    {"SessionRefused",
     nothing,
     faulty("lockdown/StartSession#1+=error:SessionProhibited"),
     "session",
     {"gives no session", "refused", "restart"}},
    {"SessionSilent",
     nothing,
     faulty("lockdown/Handshake#1+=silent"),
     "session",
     {"timed out", "restart"}},
    {"SessionGarbled",
     nothing,
     faulty("lockdown/Handshake#1+=garbled"),
     "session",
     {"did not agree", "restart"}},
    {"KeysRefused",
     nothing,
     [](auto& bus, auto& phone) { phone.trust(bus.hostId()); },
     "session",
     {"certificate", "vesk pair --udid "}},
    {"CertificateExpired",
     [](auto& options) { options.expiredCertificate = true; },
     untouched,
     "session",
     {"not valid", "clock"}},
    {"FileServiceRefused",
     nothing,
     faulty("lockdown/StartService#1+=error:ServiceProhibited"),
     "file-service",
     {"refuses its file service", "ServiceProhibited", "Restart"}},
    {"FileServiceGone",
     [](auto& options) { options.secureServices = true; },
     faulty("afc/Handshake#1+=drop"),
     "file-service",
     {"cannot be reached", "restart"}},
    {"SyncLockHeld",
     nothing,
     [](auto&, auto& phone) { phone.holdSyncLock(); },
     "sync-lock",
     {"another program", "Wait"}},
    {"DiskFull",
     [](auto& options) { options.freeBytes = 1000; },
     untouched,
     "free-space",
     {"full", "Remove"}},
    {"SpaceUnknown",
     nothing,
     faulty("afc/DeviceInfo#1+=status:10"),
     "free-space",
     {"does not say", "Restart"}},
    {"CatalogueUnreadable",
     nothing,
     [](auto&, auto& phone) { putCatalogue(phone, "no property list"); },
     "catalogue",
     {"no property list", "--force"}},
    {"CatalogueRefused",
     nothing,
     [](auto&, auto& phone) {
         putCatalogue(phone, "x");
         phone.faults().add(parseFault("afc/Read#1+=status:10"));
     },
     "catalogue",
     {"cannot be read", "permission", "Restart"}},
    {"UnknownFirmware",
     [](auto& options) { options.firmware = "3.1.3"; },
     untouched,
     "firmware",
     {"3.1.3", "Do not sync"}},
    {"NotAnIphone",
     [](auto& options) { options.deviceClass = "iPod"; },
     untouched,
     "kind",
     {"iPod", "iPhone"}},
    {"SilentPhone",
     nothing,
     [](auto&, auto& phone) { phone.faults().goSilent(); },
     "connection",
     {"does not answer", "Wake it"}},
};

class DoctorFinds : public Doctor, public ::testing::WithParamInterface<Case> {};

} // namespace

TEST_P(DoctorFinds, ThisAndNothingElseAndChangesNothing) {
    GetParam().options(options);
    plugIn();
    GetParam().setUp(bus(), phone());
    const auto before = everything();
    expectOneProblem(doctor({}, {"--json"}), GetParam().check, GetParam().words);
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(changesInLog(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Problems, DoctorFinds, ::testing::ValuesIn(kCases),
                         [](const auto& one) { return one.param.name; });

TEST_F(Doctor, FindsNothingOnAHealthyPhone) {
    for (const SessionKind kind : {SessionKind::Clear, SessionKind::Modern, SessionKind::Ssl3}) {
        options.session = kind;
        plugIn();
        putRingtones({{"ABCD.m4r", "A", "1"}});
        const VeskResult result = doctor();
        EXPECT_THAT(result, ExitsWith(ExitCode::Success));
        EXPECT_THAT(result.out,
                    AllOf(HasSubstr("My Phone"), HasSubstr("SSL 3.0"),
                          HasSubstr("Nothing stands in the way"), Not(HasSubstr("PROBLEM"))));
        EXPECT_THAT(result.err, IsEmpty());
        bus().unplug(id());
        bus().deletePairRecord(phone().udid()); // the next phone has other keys
    }
}

TEST_F(Doctor, GivesTheSyncLockBack) {
    plugIn();
    ASSERT_TRUE(phone().holdSyncLock()); // makes the file
    phone().releaseSyncLock();
    EXPECT_THAT(doctor(), ExitsWith(ExitCode::Success));
    const auto locks =
        log().entries([](const virtualphone::LogEntry& entry) { return entry.request == "Lock"; });
    EXPECT_EQ(locks.size(), 2u); // taken, given back
    EXPECT_TRUE(phone().holdSyncLock());
}

TEST_F(Doctor, MakesNoLockFileWhereThereIsNone) {
    plugIn();
    EXPECT_THAT(doctor(), ExitsWith(ExitCode::Success));
    EXPECT_FALSE(exists("/com.apple.itunes.lock_sync"));
}

TEST_F(Doctor, SaysWhatIsWrongAndWhatToDoInWords) {
    options.paired = false;
    plugIn();
    const VeskResult result = doctor();
    EXPECT_THAT(result, ExitsWith(ExitCode::ProblemsFound));
    EXPECT_THAT(result.out, AllOf(HasSubstr("PROBLEM  the phone is not paired"),
                                  HasSubstr("vesk pair --udid " + phone().udid())));
}

TEST_F(Doctor, LooksAtEveryPhoneOrAtTheOneThatIsMeant) {
    plugIn();
    const auto other = makePhone("Other Phone", {.paired = false});
    bus().plug(other);
    const VeskResult both = doctor();
    EXPECT_THAT(both, ExitsWith(ExitCode::ProblemsFound));
    EXPECT_THAT(both.out, AllOf(HasSubstr("My Phone"), HasSubstr("Other Phone")));
    EXPECT_THAT(doctor({}, {"--udid", phone().udid()}), ExitsWith(ExitCode::Success));
}

TEST_F(Doctor, FindsThatThereIsNoPhone) {
    expectOneProblem(doctor({}, {"--json"}), "phone", {"no phone", "Plug"});
    plugIn();
    expectOneProblem(doctor({}, {"--json", "--udid", std::string(40, 'e')}), "phone",
                     {std::string(40, 'e'), "Plug"});
}

TEST_F(Doctor, FindsThatThereIsNoDaemon) {
    const std::string missing = (temporaryFolder() / "no-socket").string();
    const VeskResult result = doctor({{"USBMUXD_SOCKET_ADDRESS", "UNIX:" + missing}}, {"--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::ProblemsFound));
    EXPECT_THAT(problems(result.json()).at("mux-daemon"),
                AllOf(HasSubstr(missing), HasSubstr("is missing"), HasSubstr("apt install")));
}

TEST_F(Doctor, LooksForTheDaemonWhereTheDeviceLayerLooks) {
    // What is no address at all means the usual one.
    for (const char* setting : {"", "UNIX:", "nonsense", "host:", ":27015"}) {
        const VeskResult result = doctor({{"USBMUXD_SOCKET_ADDRESS", setting}}, {"--json"});
        EXPECT_THAT(result.out, HasSubstr("/var/run/usbmuxd")) << setting;
    }
    const VeskResult result = doctor({{"USBMUXD_SOCKET_ADDRESS", "127.0.0.1:1"}}, {"--json"});
    EXPECT_THAT(result.out, HasSubstr("is looked for at 127.0.0.1:1"));
}

TEST_F(Doctor, FindsThatTheDaemonHasEnded) {
    const std::string left = (temporaryFolder() / "left").string();
    std::ofstream(left) << ""; // refuses connections, as a socket does that nobody listens on
    const VeskResult result = doctor({{"USBMUXD_SOCKET_ADDRESS", "UNIX:" + left}}, {"--json"});
    EXPECT_THAT(problems(result.json()).at("mux-daemon"),
                AllOf(HasSubstr("nobody listens"), HasSubstr("restart")));
}

TEST_F(Doctor, FindsThatTheDaemonDoesNotAnswer) {
    plugIn();
    bus().faults().add(parseFault("usbmux#1+=silent"));
    const VeskResult result = doctor({}, {"--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::ProblemsFound));
    EXPECT_THAT(problems(result.json()).at("mux-daemon"),
                AllOf(HasSubstr("does not answer"), HasSubstr("restart")));
}

// It listens and never accepts anybody, and others wait already.
TEST_F(Doctor, FindsThatTheDaemonTakesNoConnection) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = (temporaryFolder() / "deaf").string();
    path.copy(address.sun_path, path.size());
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    std::vector<int> descriptors{::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    ASSERT_EQ(::bind(descriptors.front(), generic, sizeof address), 0);
    ASSERT_EQ(::listen(descriptors.front(), 0), 0);
    do {
        descriptors.push_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    } while (::connect(descriptors.back(), generic, sizeof address) == 0);
    const VeskResult result = doctor({{"USBMUXD_SOCKET_ADDRESS", "UNIX:" + path}}, {"--json"});
    EXPECT_THAT(problems(result.json()).at("mux-daemon"), HasSubstr("does not answer"));
    for (const int descriptor : descriptors) {
        ::close(descriptor);
    }
}

TEST_F(Doctor, FindsThatTheSocketMayNotBeUsed) {
    plugIn();
    std::filesystem::permissions(bus().socketPath(), std::filesystem::perms::none);
    VeskProcess::Options process;
    std::vector<std::string> arguments = {"doctor", "--wait", "0.1", "--json"};
    if (::geteuid() == 0) {
        // Whom nothing is forbidden has to be somebody else.
        process.program = "/usr/bin/setpriv";
        if (::access(process.program.c_str(), X_OK) != 0) {
            GTEST_SKIP() << "setpriv is not installed";
        }
        arguments.insert(arguments.begin(),
                         {"--reuid=65534", "--regid=65534", "--clear-groups", KRL_VESK});
    }
    const VeskResult result = VeskProcess(arguments, process).wait();
    if (result.exitCode == 126 || result.exitCode == 127) {
        GTEST_SKIP() << "another user cannot run programs of this build folder";
    }
    EXPECT_THAT(result, ExitsWith(ExitCode::ProblemsFound));
    EXPECT_THAT(problems(result.json()).at("mux-permission"),
                AllOf(HasSubstr("may not connect"), HasSubstr("permissions")));
}

#ifdef KRL_NO_SSL3
TEST_F(Doctor, FindsThatNssDoesNotSpeakSsl3) {
    plugIn();
    const std::map<std::string, std::string> environment = {{"LD_PRELOAD", KRL_NO_SSL3}};
    const VeskResult result = doctor(environment, {"--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::ProblemsFound));
    const auto found = problems(result.json());
    EXPECT_THAT(found.at("encryption"),
                AllOf(HasSubstr("does not speak SSL 3.0"), HasSubstr("libnss3")));
    EXPECT_THAT(found.at("session"), AllOf(HasSubstr("SSL 3.0"), HasSubstr("libnss3")));

    VeskProcess::Options process;
    process.environment = environment;
    const VeskResult list = VeskProcess({"list"}, process).wait();
    EXPECT_THAT(list, ExitsWith(ExitCode::CannotOpen));
    EXPECT_THAT(list.err, HasSubstr("NSS"));
}

TEST_F(Doctor, APhoneThatSpeaksTlsNeedsNoSsl3) {
    options.session = SessionKind::Modern;
    plugIn();
    VeskProcess::Options process;
    process.environment = {{"LD_PRELOAD", KRL_NO_SSL3}};
    EXPECT_THAT(VeskProcess({"list"}, process).wait(), ExitsWith(ExitCode::Success));
}
#endif

} // namespace vesk::testing
