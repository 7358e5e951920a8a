// What songs cost: vesk judges them and makes ringtones of them, in turns with the programs of FFmpeg
// doing the same.

#include "bench/Programs.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using krl::bench::run;

constexpr int kRuns = 5;
constexpr int kSongs = 8;

/// Runs a program of FFmpeg without its banner.
void ffmpeg(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"ffmpeg", "-hide_banner", "-nostdin", "-nostats",
                                         "-loglevel", "error", "-y"});
    run(arguments);
}

/// Songs of four minutes, in stereo.
std::vector<std::string> makeSongs(const fs::path& folder) {
    std::vector<std::string> songs;
    for (int i = 0; i < kSongs; ++i) {
        songs.push_back(folder / ("song " + std::to_string(i) + ".flac"));
        ffmpeg({"-f", "lavfi", "-i",
                "anoisesrc=d=240:c=pink:a=0.2:r=44100:seed=" + std::to_string(i), "-ac", "2",
                songs.back()});
    }
    return songs;
}

/// The same ringtone by FFmpeg: its loudness is measured first.
void prepareByFfmpeg(const std::string& song, const fs::path& place) {
    const std::string filters = "afade=t=out:st=29:d=1,loudnorm=I=-14:TP=-1";
    const std::vector<std::string> cut{"-ss", "62.5", "-t", "30", "-i", song, "-af"};
    std::vector<std::string> measuring = cut;
    measuring.insert(measuring.end(), {filters + ":print_format=json", "-f", "null", "-"});
    ffmpeg(measuring);
    std::vector<std::string> making = cut;
    making.insert(making.end(), {filters, "-ar", "44100", "-c:a", "aac", "-b:a", "160k", "-f",
                                 "ipod", "-movflags", "+faststart", place.string()});
    ffmpeg(making);
}

/// Prints how long ours takes over how long theirs takes, in turns.
void compare(const char* what, const std::function<void()>& ours,
             const std::function<void()>& theirs) {
    std::vector<double> our;
    std::vector<double> their;
    for (int i = 0; i < kRuns; ++i) {
        our.push_back(krl::bench::secondsOf(ours));
        their.push_back(krl::bench::secondsOf(theirs));
    }
    const double taken = krl::bench::median(our);
    std::printf("%s: %.2f (ours %.3g ms), median of %d runs\n", what,
                taken / krl::bench::median(their), taken * 1e3, kRuns);
}

} // namespace

int main() {
    const virtualphone::testing::TemporaryFolder root;
    const fs::path made = root.path() / "made";
    const fs::path cache = root.path() / "cache";
    setenv("XDG_CACHE_HOME", cache.c_str(), 1);
    const std::vector<std::string> songs = makeSongs(root.path());
    fs::create_directories(made);

    std::vector<std::string> inspect{KRL_VESK, "inspect", "--json"};
    for (int i = 0; i < 20; ++i) {
        inspect.insert(inspect.end(), songs.begin(), songs.end());
    }
    compare(
        "judging 160 FLACs over ffprobe for each",
        [&] {
            // Its exit code says that these do not play as they are.
            std::vector<std::string> command{"sh", "-c", "\"$@\"; test $? = 52", "sh"};
            command.insert(command.end(), inspect.begin(), inspect.end());
            run(command);
        },
        [&] {
            for (size_t i = 3; i < inspect.size(); ++i) {
                run({"ffprobe", "-v", "error", "-show_streams", "-show_format", inspect[i]});
            }
        });
    const auto prepare = [&](const std::vector<std::string>& given) {
        fs::remove_all(cache); // or it would be there already
        std::vector<std::string> command{KRL_VESK,  "prepare", "--quiet", "--force",
                                         "--start", "62.5",    "-o",      made.string() + "/"};
        command.insert(command.end(), given.begin(), given.end());
        run(command);
    };
    compare(
        "a ringtone of four minutes of FLAC over ffmpeg with loudnorm, twice",
        [&] { prepare({songs.front()}); }, [&] { prepareByFfmpeg(songs.front(), made / "f.m4a"); });
    compare(
        "ringtones of eight over the same, one after the other", [&] { prepare(songs); },
        [&] {
            for (const std::string& song : songs) {
                prepareByFfmpeg(song, made / "f.m4a");
            }
        });
}
