#include "vesk/commands/Commands.h"

#include "audio/preparing/Preparer.h"
#include "engine/files/RegularFile.h"
#include "engine/files/WholeFile.h"
#include "engine/values/Text.h"
#include "vesk/commands/PreparedTexts.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace vesk {
namespace {

namespace fs = std::filesystem;
using krl::audio::Preparer;
using krl::audio::SongOutcome;

constexpr char kEnding[] = ".m4r";

bool isFolder(const std::string& path) {
    std::error_code ignored;
    return path.ends_with('/') || fs::is_directory(path, ignored);
}

/// What a file is whatever path leads to it; nothing when there is none.
using Identity = std::optional<std::pair<dev_t, ino_t>>;

Identity identityOf(const fs::path& path) {
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 ? Identity({status.st_dev, status.st_ino})
                                              : std::nullopt;
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
        std::map<Identity, std::string> songs;
        for (const std::string& song : options.arguments) {
            songs.emplace(identityOf(song), song);
        }
        songs.erase(std::nullopt);
        std::map<fs::path, std::string> songAt;
        for (const std::string& song : options.arguments) {
            const auto over = songs.find(identityOf(of(song)));
            if (over != songs.end()) {
                throw Failure(FailureKind::NameTaken,
                              fmt::format("the ringtone of \"{}\" would be written over the song "
                                          "\"{}\"",
                                          song, over->second),
                              "Choose another place with --output: not even with --force a song is "
                              "written over.");
            }
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

bool holds(const fs::path& place, const std::string& bytes) {
    std::error_code ignored;
    return fs::file_size(place, ignored) == bytes.size() &&
           krl::engine::RegularFile(place, "").bytes(bytes.size()) == bytes;
}

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
        const bool there = fs::exists(place);
        const bool same = there && holds(place, bytes);
        if (!same) {
            WholeFile file(place);
            file.add(bytes);
            file.finish(options_.force ? WholeFile::Existing::IsReplaced
                                       : WholeFile::Existing::IsKept);
        }
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
