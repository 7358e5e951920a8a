// Ringtones that are played, into files and not through a sound card.
#include "tests/vesk/VeskTest.h"

#include <gmock/gmock.h>

#include <csignal>
#include <thread>

namespace vesk::testing {
namespace {

namespace fs = std::filesystem;

std::string littleEndian(uint32_t value, int bytes) {
    std::string result;
    for (int i = 0; i < bytes; ++i) {
        result += static_cast<char>(value >> (8U * static_cast<unsigned>(i)));
    }
    return result;
}

constexpr uint32_t kRate = 8000;

/// A wave file of one channel and 8 bits a sample.
std::string wave(uint32_t seconds) {
    const uint32_t size = seconds * kRate;
    return "RIFF" + littleEndian(size + 36, 4) + "WAVEfmt " + littleEndian(16, 4) +
           littleEndian(1, 2) + littleEndian(1, 2) + littleEndian(kRate, 4) +
           littleEndian(kRate, 4) + littleEndian(1, 2) + littleEndian(8, 2) + "data" +
           littleEndian(size, 4) + std::string(size, '\x20');
}

class Play : public VeskTest {
protected:
    void SetUp() override {
        options.name = "My Phone";
        plugIn();
        putRingtones({{"KDAQ.wav", "Marimba", "1"}});
        put(std::string(kFolder) + "/KDAQ.wav", wave(1));
    }

    static constexpr char kOneByteASample[] =
        "capsfilter caps=audio/x-raw,format=U8,rate=8000,channels=1 ! filesink location=";

    std::string heardFile() const { return (temporaryFolder() / "heard").string(); }

    /// Plays into a file, in a folder of its own and with another for temporary files.
    VeskResult play(std::vector<std::string> arguments) const {
        fs::create_directories(workingFolder());
        fs::create_directories(temporaries());
        fs::remove(heardFile());
        arguments.insert(arguments.begin(), "play");
        arguments.insert(arguments.end(), {"--sink", kOneByteASample + heardFile()});
        VeskProcess::Options around;
        around.environment = {{"TMPDIR", temporaries()}};
        const fs::path old = fs::current_path();
        fs::current_path(workingFolder());
        VeskResult result = VeskProcess(arguments, around).wait();
        fs::current_path(old);
        return result;
    }

    std::string workingFolder() const { return (temporaryFolder() / "here").string(); }

    std::string temporaries() const { return (temporaryFolder() / "temporary").string(); }

    void here(const std::string& name, const std::string& contents) const {
        fs::create_directories(workingFolder());
        std::ofstream(fs::path(workingFolder()) / name, std::ios::binary) << contents;
    }

    double secondsHeard() const {
        std::error_code error;
        const auto bytes = fs::file_size(heardFile(), error);
        return error ? 0 : static_cast<double>(bytes) / kRate;
    }
};

} // namespace

TEST_F(Play, AFileIsPlayedToItsEndAndNothingIsSaidInAPipe) {
    const std::string file = local("tone.wav", wave(2));
    const VeskResult result = play({file});
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, IsEmpty());
    EXPECT_EQ(secondsHeard(), 2);
    EXPECT_EQ(play({file, "--json"}).json(),
              (nlohmann::json{{"played", file}, {"lengthSeconds", 2.0}}));
}

TEST_F(Play, ARingtoneOfThePhoneIsPlayedAndLeavesNothingBehind) {
    const auto before = everything();
    log().clear();
    EXPECT_THAT(play({"Marimba"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(secondsHeard(), 1);
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(changesInLog(), IsEmpty());
    EXPECT_TRUE(fs::is_empty(temporaries()));
}

TEST_F(Play, AFileThatIsThereGoesBeforeARingtoneUnlessAPhoneIsSaid) {
    here("Marimba", wave(3));
    EXPECT_THAT(play({"Marimba"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(secondsHeard(), 3);
    EXPECT_THAT(play({"Marimba", "--udid", "My Phone"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(secondsHeard(), 1);
    EXPECT_THAT(play({"./Marimba", "--udid", "My Phone"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(secondsHeard(), 3);
}

TEST_F(Play, AFolderOfTheNameIsNoFile) {
    fs::create_directories(fs::path(workingFolder()) / "Marimba");
    EXPECT_THAT(play({"Marimba"}), ExitsWith(ExitCode::Success));
    EXPECT_EQ(secondsHeard(), 1);
}

TEST_F(Play, WhatIsNeitherIsSaidToBeNeither) {
    const VeskResult path = play({"./nothing"});
    EXPECT_THAT(path, ExitsWith(ExitCode::UnreadableFile));
    const VeskResult name = play({"Marimbo"});
    EXPECT_THAT(name, ExitsWith(ExitCode::NameNotFound));
    EXPECT_THAT(name.err, AllOf(HasSubstr("there is no file \"Marimbo\""),
                                HasSubstr("did you mean \"Marimba\"")));
    bus().unplug(id());
    const VeskResult noPhone = play({"Marimba", "--wait", "0.1"});
    EXPECT_THAT(noPhone, ExitsWith(ExitCode::NoPhone));
    EXPECT_THAT(noPhone.err, HasSubstr("there is no file \"Marimba\""));
}

TEST_F(Play, WhatIsNoSoundIsSaid) {
    const VeskResult result = play({local("text.m4r", "This is no sound.\n")});
    EXPECT_THAT(result, ExitsWith(ExitCode::UnreadableFile));
    EXPECT_THAT(result.err, AllOf(HasSubstr("cannot be played"), HasSubstr("vesk inspect")));
}

TEST_F(Play, ADeviceThatIsMissingIsSaidWithWhatToDo) {
    const std::string file = local("tone.wav", wave(1));
    for (const char* sink : {"no_such_sink", "filesink location=/nowhere/at/all"}) {
        const VeskResult result = vesk({"play", file, "--sink", sink});
        EXPECT_THAT(result, ExitsWith(ExitCode::Unexpected));
        EXPECT_THAT(result.err, AllOf(HasSubstr("no sound device"), HasSubstr("gstreamer1.0-")));
    }
}

TEST_F(Play, ShowsHowFarItIsOnATerminalAndEndsWithCtrlC) {
    VeskProcess::Options terminal;
    terminal.terminal = true;
    VeskProcess process({"play", local("long.wav", wave(600)), "--sink", "fakesink sync=true"},
                        terminal);
    process.waitForText(" of 10:00");
    process.type("\x03");
    const VeskResult result = process.wait();
    EXPECT_THAT(result, ExitsWith(ExitCode::Success));
    EXPECT_THAT(result.out, Not(HasSubstr("error")));
}

TEST_F(Play, ASignalEndsItInAPipeToo) {
    const std::string heard = heardFile();
    VeskProcess process({"play", local("long.wav", wave(600)), "--sink",
                         "tee name=t ! queue ! fakesink sync=true t. ! queue ! filesink "
                         "buffer-mode=unbuffered location=" +
                             heard});
    const auto hasBegun = [&] {
        std::error_code ignored;
        return fs::exists(heard, ignored) && fs::file_size(heard, ignored) > 0;
    };
    constexpr int kMoments = 6000; // a minute, in which it would not come any more
    for (int moment = 0; !hasBegun(); ++moment) {
        ASSERT_LT(moment, kMoments);
        std::this_thread::sleep_for(std::chrono::milliseconds{10});
    }
    process.signal(SIGTERM);
    EXPECT_THAT(process.wait(), ExitsWith(ExitCode::Success));
}

} // namespace vesk::testing
