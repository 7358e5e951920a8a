// Each reason to refuse: its exit code, what the message says, and a phone that is as it was.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace vesk::testing {
namespace {

class Refusal : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
        putRingtones({{"KDAQ.m4r", "Marimba", "1"}, {"QJHE.m4r", "Glöckchen", "2"}});
    }

    /// Runs vesk, expects the code and that the phone is untouched, and the same as JSON.
    std::string refused(const std::vector<std::string>& arguments, ExitCode code) {
        const auto before = everything();
        const VeskResult text = vesk(arguments);
        EXPECT_THAT(text, ExitsWith(code));
        EXPECT_THAT(text.out, IsEmpty());
        EXPECT_EQ(everything(), before);

        std::vector<std::string> withJson = arguments;
        withJson.insert(withJson.begin(), "--json");
        const VeskResult json = vesk(withJson);
        EXPECT_THAT(json, ExitsWith(code));
        const auto error = json.json().at("error");
        EXPECT_EQ(error.at("code"), static_cast<int>(code));
        EXPECT_EQ(error.at("name"), exitCodeName(code));
        EXPECT_FALSE(error.at("message").get<std::string>().empty());
        EXPECT_EQ(everything(), before);
        return text.err;
    }
};

} // namespace

TEST_F(Refusal, WrongCommandLinesTouchNoPhone) {
    const std::vector<std::vector<std::string>> lines{
        {},
        {"unknown"},
        {"list", "--unknown"},
        {"list", "surplus"},
        {"add"},
        {"remove"},
        {"sync"},
        {"sync", "a", "b"},
        {"check"},
        {"list", "--timeout", "soon"},
        {"list", "--timeout", "0"},
        {"list", "--timeout", "-1"},
        {"list", "--dry-run"},
        {"add", "a.mp3", "b.mp3", "--name", "x"},
        {"remove", "x", "--yes"},
        {"remove", "x", "--all", "--yes"},
        {"list", "--udid"},
        {"list", "--udid", ""},
    };
    for (const auto& line : lines) {
        log().clear();
        refused(line, ExitCode::Usage);
        EXPECT_THAT(log().entries(), IsEmpty()) << "the phone was asked";
    }
}

TEST_F(Refusal, AMistypedCommandGetsASuggestion) {
    EXPECT_THAT(refused({"lst"}, ExitCode::Usage), HasSubstr("did you mean \"list\"?"));
    EXPECT_THAT(refused({}, ExitCode::Usage), HasSubstr("no command was given"));
}

TEST_F(Refusal, WrongCommandLinesAreToldInWordsOfOurOwnWithTheCommandsHelp) {
    struct Case {
        std::vector<std::string> line;
        std::string message;
        std::string help;
    };

    const std::vector<Case> cases{
        {{"unknown"}, "there is no command \"unknown\"", "vesk"},
        {{"add"}, "\"add\" is given nothing to work on", "vesk add"},
        {{"list", "--unknown"}, "\"list\" does not take \"--unknown\"", "vesk list"},
        {{"rename"}, "\"rename\" needs OLD and NEW", "vesk rename"},
        {{"rename", "a"}, "\"rename\" needs OLD and NEW", "vesk rename"},
        {{"rename", "a", "b", "c"}, "\"rename\" does not take \"c\"", "vesk rename"},
        {{"replace", "a"}, "\"replace\" needs NAME and FILE", "vesk replace"},
        {{"sync", "a", "b"}, "\"sync\" takes exactly one DIR", "vesk sync"},
        {{"list", "--udid"}, "--udid takes exactly one value", "vesk list"},
        {{"list", "--udid", "a", "--udid", "b"}, "--udid takes exactly one value", "vesk list"},
        {{"list", "--timeout", "soon"},
         "--timeout: \"soon\" is no number of seconds from 0.001 to 86400",
         "vesk list"},
        {{"list", "--json=perhaps"}, "an option that takes no value was given one", "vesk list"},
        {{"list", "--dry-run"},
         "--dry-run is for watch --sync, add, remove, rename, replace, sync, rebuild, undo and "
         "restore",
         "vesk list"},
        {{"plugin"}, "\"vesk plugin\" needs a command", "vesk plugin"},
        {{"plugin", "instal"},
         "there is no command \"instal\"; did you mean \"install\"?",
         "vesk plugin"},
    };
    for (const Case& one : cases) {
        const VeskResult result = vesk(one.line);
        EXPECT_THAT(result, ExitsWith(ExitCode::Usage));
        EXPECT_EQ(result.err, "vesk: error: " + one.message + "\n  " + one.help +
                                  " --help shows what there is.\n");
    }
}

TEST_F(Refusal, ANameMayBeThatOfACommandOrOption) {
    putRingtones({{"KDAQ.m4r", "list", "1"}, {"QJHE.m4r", "--json", "2"}});
    EXPECT_THAT(vesk({"remove", "list"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), ::testing::ElementsAre("--json"));
    EXPECT_THAT(vesk({"remove", "--", "--json"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), IsEmpty());
}

TEST_F(Refusal, UnsupportedType) {
    EXPECT_THAT(refused({"add", local("photo.jpg")}, ExitCode::UnsupportedType),
                AllOf(HasSubstr("photo.jpg"), HasSubstr("m4r")));
}

TEST_F(Refusal, UnreadableFiles) {
    EXPECT_THAT(refused({"add", fs::path(local("ok.mp3")).replace_filename("missing.mp3")},
                        ExitCode::UnreadableFile),
                AllOf(HasSubstr("missing.mp3"), HasSubstr("No such file")));
    EXPECT_THAT(refused({"add", localFolder()}, ExitCode::UnreadableFile),
                HasSubstr("vesk sync takes folders"));
    EXPECT_THAT(refused({"sync", local("ok.mp3")}, ExitCode::UnreadableFile),
                HasSubstr("vesk add takes files"));
    EXPECT_THAT(refused({"sync", localFolder() + "/nowhere"}, ExitCode::UnreadableFile),
                HasSubstr("nowhere"));
    if (geteuid() != 0) {
        const std::string secret = local("secret.mp3");
        chmod(secret.c_str(), 0);
        refused({"add", secret}, ExitCode::UnreadableFile);
        refused({"sync", localFolder()}, ExitCode::UnreadableFile);
    }
}

TEST_F(Refusal, EmptyFiles) {
    EXPECT_THAT(refused({"add", local("silence.mp3", "")}, ExitCode::EmptyFile),
                HasSubstr("silence.mp3"));
    refused({"sync", localFolder()}, ExitCode::EmptyFile);
}

TEST_F(Refusal, FilesTooLargeForAPhone) {
    const std::string huge = local("huge.wav");
    std::filesystem::resize_file(huge, uintmax_t{1} << 31U);
    EXPECT_THAT(refused({"add", huge}, ExitCode::FileTooLarge), HasSubstr("2.0 GiB"));
}

TEST_F(Refusal, NamesThatTheCatalogueCannotHold) {
    refused({"add", local("a.mp3"), "--name", "two\nlines"}, ExitCode::BadName);
    refused({"add", local("a.mp3"), "--name", ""}, ExitCode::BadName);
    EXPECT_THAT(refused({"add", local("bell\x07.mp3")}, ExitCode::BadName), HasSubstr("\\x07"));
}

TEST_F(Refusal, ANameThatIsOnThePhone) {
    EXPECT_THAT(refused({"add", local("Marimba.mp3")}, ExitCode::NameTaken),
                AllOf(HasSubstr("Marimba"), HasSubstr("--name"), HasSubstr("My Phone")));
}

TEST_F(Refusal, ANameThatIsNotThereWithCloseOnes) {
    EXPECT_THAT(refused({"remove", "Marinba"}, ExitCode::NameNotFound),
                AllOf(HasSubstr("Marinba"), HasSubstr("did you mean \"Marimba\"")));
    EXPECT_THAT(refused({"remove", "Marimba", "Xylophone"}, ExitCode::NameNotFound),
                AllOf(HasSubstr("Xylophone"), Not(HasSubstr("did you mean"))));
}

TEST_F(Refusal, OfManyDetailsTwentyAreShownAndJsonHasAll) {
    std::vector<std::string> names{"remove"};
    for (int i = 10; i < 35; ++i) {
        names.push_back("Marimba" + std::to_string(i));
    }
    const std::string shown = refused(names, ExitCode::NameNotFound);
    EXPECT_THAT(shown, AllOf(HasSubstr("\"Marimba29\", did you mean"), HasSubstr("and 5 more"),
                             Not(HasSubstr("\"Marimba30\", did you mean"))));
    names.insert(names.begin(), "--json");
    EXPECT_EQ(vesk(names).json().at("error").at("details").size(), 25U);
}

TEST_F(Refusal, NoPhone) {
    bus().unplug(id());
    for (const auto& line : std::vector<std::vector<std::string>>{{"info"},
                                                                  {"list"},
                                                                  {"add", local("a.mp3")},
                                                                  {"remove", "x"},
                                                                  {"sync", localFolder()}}) {
        std::vector<std::string> arguments = line;
        arguments.insert(arguments.end(), {"--wait", "0.1"});
        EXPECT_THAT(refused(arguments, ExitCode::NoPhone),
                    AllOf(HasSubstr("no phone"), HasSubstr("usbmux"), HasSubstr("vesk devices")));
    }
}

TEST_F(Refusal, NoMuxDaemon) {
    VeskProcess::Options elsewhere;
    elsewhere.environment["USBMUXD_SOCKET_ADDRESS"] =
        "UNIX:" + (temporaryFolder() / "nobody").string();
    for (const auto& line :
         std::vector<std::vector<std::string>>{{"list"}, {"list", "--udid", "x"}, {"devices"}}) {
        std::vector<std::string> arguments = line;
        arguments.insert(arguments.end(), {"--wait", "0.1"});
        const VeskResult result = VeskProcess(arguments, elsewhere).wait();
        EXPECT_THAT(result, ExitsWith(ExitCode::NoDeviceLayer));
        EXPECT_THAT(result.err, AllOf(HasSubstr("usbmux"), HasSubstr("plug one in")));
    }
}

TEST_F(Refusal, SeveralPhonesUntilOneIsNamed) {
    const auto second = makePhone("Second Phone");
    bus().plug(second);
    EXPECT_THAT(refused({"list"}, ExitCode::SeveralPhones),
                AllOf(HasSubstr("--udid"), HasSubstr(phone().udid()), HasSubstr(second->udid()),
                      HasSubstr("My Phone"), HasSubstr("Second Phone")));
    const VeskResult chosen = vesk({"list", "--udid", second->udid(), "--json"});
    EXPECT_THAT(chosen, ExitsWith(ExitCode::Success));
    EXPECT_EQ(chosen.json().at("phone").at("name"), "Second Phone");
}

TEST_F(Refusal, AUdidThatIsNotThere) {
    EXPECT_THAT(
        refused({"list", "--udid", std::string(40, 'e'), "--wait", "0.2"}, ExitCode::NoPhone),
        AllOf(HasSubstr(std::string(40, 'e')), HasSubstr(phone().udid())));
}

TEST_F(Refusal, OneIphoneAmongOtherDevicesIsTheOne) {
    const auto pod = makePhone("My iPod", {.deviceClass = "iPod"});
    bus().plug(pod);
    const VeskResult result = vesk({"info", "--json"});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_EQ(result.json().at("name"), "My Phone");
    EXPECT_THAT(result.err, IsEmpty()) << "what the library says of the other one is left out";
    EXPECT_THAT(refused({"list", "--udid", pod->udid()}, ExitCode::NotAnIphone),
                AllOf(HasSubstr("My iPod"), HasSubstr("iPod")));
}

TEST_F(Refusal, OnlyADeviceThatIsNoIphone) {
    bus().unplug(id());
    const auto pod = makePhone("My iPod", {.deviceClass = "iPod"});
    bus().plug(pod);
    EXPECT_THAT(refused({"list"}, ExitCode::NotAnIphone), HasSubstr("My iPod"));
}

TEST_F(Refusal, AnUnpairedPhone) {
    bus().deletePairRecord(phone().udid());
    EXPECT_THAT(refused({"list"}, ExitCode::NotPaired),
                AllOf(HasSubstr("My Phone"), HasSubstr("vesk pair --udid " + phone().udid())));
}

class LockedRefusal : public Refusal {
protected:
    LockedRefusal() { options.passwordProtected = true; }
};

TEST_F(LockedRefusal, APhoneThatForgotThisComputerAndDoesNotPairUnasked) {
    phone().forgetHosts();
    EXPECT_THAT(refused({"list"}, ExitCode::CannotOpen),
                AllOf(HasSubstr("My Phone"), HasSubstr("lockdown"), HasSubstr("pair")));
}

TEST_F(Refusal, APhoneThatRefusesTheFileServiceNamesTheReason) {
    phone().faults().add(virtualphone::parseFault("lockdown/StartService#1+=error:ServiceLimit"));
    EXPECT_THAT(refused({"list"}, ExitCode::CannotOpen), HasSubstr("ServiceLimit"));
}

TEST_F(Refusal, APhoneThatIsSilentTakesTheGivenTimeOnly) {
    phone().faults().goSilent();
    EXPECT_THAT(refused({"list", "--timeout", "0.2"}, ExitCode::CannotOpen),
                HasSubstr("does not answer"));
}

TEST_F(Refusal, APhoneThatFallsSilentBeforeItSaysWhatItIsIsNoOtherDevice) {
    ASSERT_THAT(vesk({"devices"}), ExitsWith(ExitCode::Success));
    // Which request asks for the class.
    const auto values =
        log().entries([](const auto& entry) { return entry.request == "GetValue"; });
    const auto asked = std::find_if(values.begin(), values.end(),
                                    [](const auto& entry) { return entry.name == "DeviceClass"; });
    ASSERT_NE(asked, values.end());
    const std::string request =
        "lockdown/GetValue#" + std::to_string(asked - values.begin() + 1) + "=drop";
    phone().faults().add(virtualphone::parseFault(request));
    const VeskResult result = vesk({"list"});
    EXPECT_THAT(result, ExitsWith(ExitCode::CannotOpen));
    EXPECT_THAT(result.err, AllOf(HasSubstr(phone().udid()), HasSubstr("does not answer")));
}

TEST_F(Refusal, TooLittleSpace) {
    phone().setFreeBytes(1000);
    EXPECT_THAT(refused({"add", local("a.m4r", std::string(2000, 'x'))}, ExitCode::NoSpace),
                AllOf(HasSubstr("1000 B"), HasSubstr("My Phone")));
}

TEST_F(Refusal, AReplacementNeedsItsSpaceBeforeTheOldFileGoes) {
    local("Marimba.m4r", std::string(2000, 'x'));
    local("Glöckchen.m4r", "sound of Glöckchen");
    phone().setFreeBytes(1500);
    refused({"sync", localFolder()}, ExitCode::NoSpace);
    phone().setFreeBytes(10'000);
    EXPECT_THAT(vesk({"sync", localFolder()}), ExitsWith(ExitCode::Success));
}

TEST_F(Refusal, ACatalogueThatClaimsAGigabyteIsNotReadWhole) {
    put(kCatalogue, "");
    std::filesystem::resize_file(options.root / std::string(kCatalogue).substr(1), 1U << 30U);
    EXPECT_EQ(vesk({"info", "--json"}).json().at("catalogue"), "unreadable");
    uint64_t asked = 0;
    for (const auto& entry : log().entries()) {
        asked += entry.request == "Read" ? entry.size.value_or(0) : 0;
    }
    constexpr uint64_t kMost = 64 * 1024 * 1024;
    EXPECT_GT(asked, 0U);
    EXPECT_LE(asked, kMost);
}

TEST_F(Refusal, AnUnreadableCatalogueBecauseASyncWouldDeleteEveryFile) {
    for (const std::string text :
         {"", "not a property list", "<plist><dict/></plist>", "<plist><array/></plist>"}) {
        put(kCatalogue, text);
        for (const auto& line :
             std::vector<std::vector<std::string>>{{"list"},
                                                   {"add", local("a.m4r")},
                                                   {"add", local("a.m4r"), "--dry-run"},
                                                   {"sync", localFolder()}}) {
            EXPECT_THAT(refused(line, ExitCode::CatalogueUnreadable),
                        AllOf(HasSubstr("Ringtones.plist"), HasSubstr("--force"),
                              HasSubstr("\"vesk rebuild\""), HasSubstr("--rebuild")));
        }
    }
    EXPECT_THAT(vesk({"add", local("a.m4r"), "--force"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), ::testing::ElementsAre("a"));
}

class OtherFirmware : public VeskTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(OtherFirmware, IsWrittenToOnlyByForce) {
    options.firmware = GetParam();
    plugIn();
    const std::string file = local("a.m4r");
    const auto before = everything();
    for (const auto& line : std::vector<std::vector<std::string>>{
             {"add", file}, {"add", file, "--dry-run"}, {"sync", localFolder()}}) {
        const VeskResult refused = vesk(line);
        EXPECT_THAT(refused, ExitsWith(ExitCode::UnknownFirmware));
        EXPECT_THAT(refused.err, AllOf(HasSubstr(GetParam()), HasSubstr("--force"),
                                       HasSubstr("Nothing was changed")));
        EXPECT_EQ(everything(), before);
    }
    EXPECT_THAT(vesk({"add", file, "--force"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), ::testing::ElementsAre("a"));
}

INSTANTIATE_TEST_SUITE_P(Of, OtherFirmware, ::testing::Values("1.2", "2.0", "3.1.3", "10.1"));

TEST_F(Refusal, ALongNameWhosePlaceholderWouldMoveAlone) {
    putRingtones({{"Long name.mp3", "Long", "1"}, {"KDAQ.m4r", "Marimba", "2"}});
    EXPECT_THAT(refused({"add", local("a.m4r"), "--no-backup"}, ExitCode::WouldLoseRingtones),
                AllOf(HasSubstr("\"Long\""), HasSubstr("--force"), HasSubstr("--no-backup")));
    refused({"add", local("a.m4r"), "--no-backup", "--dry-run"}, ExitCode::WouldLoseRingtones);
    // Taking the ringtone off is no loss.
    EXPECT_THAT(vesk({"remove", "Long"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), ::testing::ElementsAre("Marimba"));
}

TEST_F(Refusal, ARingtoneThatTheCatalogueDescribesLikeAPlaceholder) {
    putRingtones({{"KDAQ.m4r", "Bare", "1", {}}, {"QJHE.m4r", "Full", "2"}});
    EXPECT_THAT(refused({"add", local("a.m4r"), "--no-backup"}, ExitCode::WouldLoseRingtones),
                AllOf(HasSubstr("\"Bare\""), HasSubstr("KDAQ.m4r")));
    EXPECT_THAT(vesk({"add", local("a.m4r"), "--force"}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(ringtoneFolder(), Not(Contains("KDAQ.m4r")));
}

TEST_F(Refusal, TwoRingtonesOfOneNameInTheCatalogue) {
    putRingtones({{"KDAQ.m4r", "Twin", "1"}, {"QJHE.m4r", "Twin", "2"}});
    EXPECT_THAT(refused({"add", local("a.m4r"), "--no-backup"}, ExitCode::WouldLoseRingtones),
                HasSubstr("Twin"));
}

TEST_F(Refusal, AnEmptyPlaceholderIsNoReason) {
    putRingtones({{"KDAQ.mp3", "Bell", "1"}});
    put(kCatalogue, catalogueText({{"KDAQ.mp3", "Bell", "1"}, {"KDAQ.m4r", "Bell", "1", {}}}));
    put(std::string(kFolder) + "/KDAQ.m4r", "");
    EXPECT_THAT(vesk({"add", local("a.m4r")}), ExitsWith(ExitCode::Success));
    EXPECT_THAT(listedNames(), ::testing::UnorderedElementsAre("Bell", "a"));
}

TEST_F(Refusal, NamesNeverReachTheTerminalRaw) {
    // A carriage return and a right-to-left override, as a catalogue can hold them.
    putRingtones({{"KDAQ.m4r", "evil&#13;\u202emp3\u009b2J", "1"}});
    const VeskResult list = vesk({"list"});
    EXPECT_THAT(list, ExitsWith(ExitCode::Success));
    EXPECT_THAT(list.out, AllOf(HasSubstr("evil\\x0d\\u202emp3\\u009b2J"), Not(HasSubstr("\r")),
                                Not(HasSubstr("\u202e"))));
    const VeskResult json = vesk({"list", "--json"});
    EXPECT_EQ(json.json().at("ringtones").at(0).at("name"), "evil\r\u202emp3\u009b2J");
    EXPECT_THAT(json.out, AllOf(Not(HasSubstr("\r")), Not(HasSubstr("\u202e"))));
    EXPECT_THAT(refused({"remove", "evil\x1b[2J"}, ExitCode::NameNotFound),
                AllOf(HasSubstr("\\x1b"), Not(HasSubstr("\x1b"))));
}

TEST_F(Refusal, OutputThatCannotBeWrittenIsAFailure) {
    VeskProcess::Options shell;
    shell.program = "/bin/sh";
    const VeskResult result =
        VeskProcess({"-c", std::string(KRL_VESK) + " list > /dev/full"}, shell).wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Unexpected));
    EXPECT_THAT(result.err, HasSubstr("could not be written"));
}

} // namespace vesk::testing
