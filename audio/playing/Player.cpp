#include "audio/playing/Player.h"

#include "engine/errors/Failure.h"
#include "engine/files/TagProcess.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <system_error>
#include <utility>

namespace krl::audio {
namespace {

using engine::Failure;
using engine::FailureKind;
namespace fs = std::filesystem;

Failure noPlayer(const std::string& why) {
    return {FailureKind::Unexpected, fmt::format("nothing can be played: {}", why),
            "Install KRLVesk with its program \"vesk-play\", which needs GStreamer."};
}

/// @throw Failure when there is none that can be started
fs::path present(const fs::path& program) {
    if (program.empty()) {
        throw noPlayer("the program \"vesk-play\" is missing beside the library");
    }
    if (access(program.c_str(), X_OK) != 0) {
        throw noPlayer(fmt::format("\"{}\" cannot be started", program.string()));
    }
    return program;
}

} // namespace

fs::path playProgram() {
    const auto program = engine::tagProgram().replace_filename("vesk-play");
    return access(program.c_str(), X_OK) == 0 ? program : fs::path();
}

Player::Player(fs::path path, int descriptor, const std::string& sink, const fs::path& program)
    : path_(std::move(path)), process_(present(program)) {
    const std::array<int, 1> files{descriptor};
    first_ = ask(sink, files);
}

PlayState Player::next() {
    PlayState state = std::exchange(isFirst_, false) ? first_ : ask("", {});
    switch (state.phase) {
    case PlayState::Phase::NoDevice:
        throw Failure(FailureKind::Unexpected,
                      fmt::format("there is no sound device to play on: {}", state.problem),
                      "Plug one in or turn the sound on. GStreamer reaches it through the packages "
                      "gstreamer1.0-pulseaudio, gstreamer1.0-pipewire or gstreamer1.0-alsa; --sink "
                      "says which one to take.");
    case PlayState::Phase::NotPlayed:
        throw Failure(FailureKind::UnreadableFile,
                      fmt::format("\"{}\" cannot be played: {}", path_.string(), state.problem),
                      "\"vesk inspect\" says what it is. Most kinds are played with the packages "
                      "gstreamer1.0-plugins-good and gstreamer1.0-libav.");
    case PlayState::Phase::Playing:
    case PlayState::Phase::Ended:
        break;
    }
    return state;
}

PlayState Player::ask(const std::string& question, std::span<const int> files) {
    // A first use looks through all of GStreamer's plug-ins, and a sound server may be slow to answer.
    constexpr std::chrono::minutes kLongest{1};
    const auto answer = process_.ask(question, files, kLongestPlayText, kLongest);
    const auto state = answer ? decodedPlayState(*answer) : std::nullopt;
    return state ? *state
                 : PlayState{PlayState::Phase::NotPlayed, 0, 0,
                             "the program that plays it ended or does not answer"};
}

} // namespace krl::audio
