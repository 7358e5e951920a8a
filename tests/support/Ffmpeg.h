/// The programs ffmpeg and ffprobe, which make songs for tests and listen to what became of them.
#pragma once

#include "tests/support/Process.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace krl::test {

inline std::string runOf(std::vector<std::string> command) {
    const auto outcome = virtualphone::testing::run(command);
    EXPECT_EQ(outcome.status, 0) << command.front() << ": " << outcome.output;
    return outcome.output;
}

/// Makes a file of a song.
inline void ffmpeg(std::vector<std::string> arguments) {
    std::vector<std::string> command{"ffmpeg",    "-hide_banner", "-nostdin",
                                     "-loglevel", "error",        "-y"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    runOf(command);
}

/// A sound written as an expression of the time t, in stereo at 44.1 kHz.
inline void makeSong(const std::filesystem::path& path, const std::string& expression,
                     double seconds, std::vector<std::string> options = {}) {
    std::vector<std::string> arguments{"-f", "lavfi", "-i",
                                       "aevalsrc='" + expression + "|" + expression +
                                           "':s=44100:d=" + std::to_string(seconds)};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(path.string());
    ffmpeg(arguments);
}

/// What a file sounds like by its own clock: its left channel at 44.1 kHz, silence where it begins
/// later than its time.
inline std::vector<float> heard(const std::filesystem::path& path) {
    const std::filesystem::path raw = path.string() + ".f32";
    ffmpeg({"-i", path.string(), "-map", "0:a:0", "-af",
            "aresample=44100:async=1:first_pts=0,pan=mono|c0=c0", "-f", "f32le", raw.string()});
    std::ifstream file(raw, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::copy(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(samples.size() * sizeof(float)),
              reinterpret_cast<char*>(samples.data()));
    return samples;
}

/// Its integrated loudness by EBU R128, in LUFS.
inline double loudnessOf(const std::filesystem::path& path) {
    const std::string text = runOf({"ffmpeg", "-hide_banner", "-nostdin", "-nostats", "-i",
                                    path.string(), "-af", "ebur128", "-f", "null", "-"});
    const size_t at = text.rfind("I:");
    EXPECT_NE(at, std::string::npos) << text;
    return std::stod(text.substr(at + 2));
}

/// Values that ffprobe says of a file's first sound track and of the file, one "key=value" a line.
inline std::string probed(const std::filesystem::path& path) {
    return runOf({"ffprobe", "-v", "error", "-select_streams", "a:0", "-show_streams",
                  "-show_format", path.string()});
}

} // namespace krl::test
