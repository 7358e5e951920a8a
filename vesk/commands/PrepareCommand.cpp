#include "vesk/commands/Commands.h"

#include "audio/preparing/Preparer.h"
#include "audio/preparing/RingtonePlace.h"
#include "engine/values/Text.h"
#include "vesk/commands/PreparedTexts.h"

#include <fmt/format.h>

#include <filesystem>
#include <map>
#include <utility>
#include <vector>

namespace vesk {
namespace {

namespace fs = std::filesystem;
using krl::audio::PlacesOfSongs;
using krl::audio::Preparer;
using krl::audio::putRingtone;
using krl::audio::SongOutcome;

constexpr char kEnding[] = ".m4r";

bool isFolder(const std::string& path) {
    std::error_code ignored;
    return path.ends_with('/') || fs::is_directory(path, ignored);
}

/// Where each song's ringtone goes.
class Places {
public:
    /// @throw Failure when two would go to one place, several to one file, or one over a song
    explicit Places(const Options& options) : output_(options.output.value_or("./")) {
        if (!isFolder(output_) && options.arguments.size() > 1) {
            throw CommandFailure(ExitCode::Usage,
                                 fmt::format("\"{}\" is no folder, and there are {} songs", output_,
                                             options.arguments.size()),
                                 "Give a folder for several songs: --output FOLDER/");
        }
        const PlacesOfSongs songs({options.arguments.begin(), options.arguments.end()});
        std::map<fs::path, std::string> songAt;
        for (const std::string& song : options.arguments) {
            songs.requireOther(song, of(song));
            const auto [there, fresh] = songAt.emplace(of(song), song);
            if (!fresh) {
                throw Failure(FailureKind::SameNameTwice,
                              fmt::format("\"{}\" and \"{}\" would both become \"{}\"",
                                          there->second, song, of(song).string()),
                              "Prepare one of them by itself, with --output.");
            }
        }
    }

    fs::path of(const fs::path& song) const {
        return isFolder(output_)
                   ? (fs::path(output_) / song.stem()).concat(kEnding).lexically_normal()
                   : fs::path(output_);
    }

private:
    std::string output_;
};

/// Says what becomes of the songs, one after the other.
class PrepareRun {
public:
    PrepareRun(const Options& options, Output& output)
        : options_(options), output_(output), places_(options) {}

    ExitCode run() {
        const std::vector<fs::path> songs(options_.arguments.begin(), options_.arguments.end());
        Preparer().prepareAll(songs, options_.recipe.wish,
                              [this](const SongOutcome& outcome) { take(outcome); });
        output_.document({{"songs", songs_}});
        return code_;
    }

private:
    void take(const SongOutcome& outcome) {
        try {
            if (outcome.failure) {
                throw Failure(*outcome.failure);
            }
            put(outcome);
        } catch (const Failure& failure) {
            const ExitCode code = exitCodeOf(failure.kind());
            code_ = code_ == ExitCode::Success ? code : code_;
            output_.failureOfOne(failure);
            songs_.push_back({{"file", outcome.song}, {"error", errorJson(failure, code)}});
        }
    }

    void put(const SongOutcome& outcome) {
        const auto& [prepared, bytes] = *outcome.ringtone;
        const fs::path place = places_.of(outcome.song);
        const bool same = !putRingtone(place, bytes, options_.force);
        say(outcome, place, same);
    }

    void say(const SongOutcome& outcome, const fs::path& place, bool same) {
        const auto& [prepared, bytes] = *outcome.ringtone;
        warnOfPrepared(outcome.song.string(), prepared, output_);
        if (prepared.lengthSeconds + 0.1 < options_.recipe.wish.lengthSeconds) {
            output_.note(fmt::format("\"{}\" ends after {} from there", outcome.song.string(),
                                     formatDuration(prepared.lengthSeconds)));
        }
        output_.summary(fmt::format("\"{}\"{} {}, {}", place.string(),
                                    same ? " is there already:" : ":", preparedText(prepared),
                                    formatBytes(bytes.size())));
        Json song({{"file", outcome.song},
                   {"output", place},
                   {"result", same                ? "already-there"
                              : outcome.fromCache ? "from-cache"
                                                  : "prepared"},
                   {"bytes", bytes.size()}});
        song.update(preparedJson(prepared));
        songs_.push_back(song);
    }

    const Options& options_;
    Output& output_;
    Places places_;
    Json songs_ = Json::array();
    ExitCode code_ = ExitCode::Success;
};

} // namespace

ExitCode runPrepare(const Options& options, Output& output) {
    return PrepareRun(options, output).run();
}

} // namespace vesk
