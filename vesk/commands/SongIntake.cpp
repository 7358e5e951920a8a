#include "vesk/commands/SongIntake.h"

#include "vesk/commands/PreparedTexts.h"

#include <fmt/format.h>

namespace vesk {

namespace fs = std::filesystem;
using krl::audio::SongOutcome;

SongIntake::SongIntake(const Options& options, Output& output)
    : options_(options), output_(output), display_(output),
      songs_(options.recipe, options.nameSource, *this) {}

void SongIntake::read(const std::vector<fs::path>& songs) {
    given_ = songs;
    std::vector<krl::audio::SongIntake::Given> given;
    for (const fs::path& song : songs) {
        given.push_back({song, options_.name});
    }
    songs_.read(given);
}

void SongIntake::hasUnreadableTags(const std::vector<std::string>& files) {
    if (!files.empty()) {
        output_.warning(fmt::format("{} no readable tags; the file name is taken:",
                                    files.size() == 1 ? "a file has"
                                                      : fmt::format("{} files have", files.size())),
                        files);
    }
}

void SongIntake::makes(size_t done, size_t total) {
    if (done < total) {
        display_.stage(fmt::format("Making ringtone {} of {}", done + 1, total));
    } else {
        display_.clear();
    }
}

void SongIntake::made(const Wanted& wanted, const SongOutcome& outcome) {
    display_.clear();
    const krl::audio::Song& song = *wanted.song;
    const auto& prepared = outcome.ringtone->prepared;
    warnOfPrepared(song.path.string(), prepared, output_);
    const auto& reasons = song.judgement.reasons;
    output_.note(fmt::format("\"{}\" was made a ringtone{}: {}", song.path.string(),
                             reasons.empty() ? "" : fmt::format(" ({})", fmt::join(reasons, "; ")),
                             preparedText(prepared)));
    Json& told = told_[song.path];
    told["reasons"] = reasons;
    told["prepared"] = preparedJson(prepared);
}

void SongIntake::goes(const Wanted& wanted, bool isHeld) {
    Json& told = told_[wanted.song->path];
    told["ringtone"] = wanted.ringtone.name;
    told["result"] = isHeld ? "already-there" : wanted.isPrepared ? "prepared" : "as-is";
}

void SongIntake::failed(const fs::path& song, const Failure& failure) {
    display_.clear();
    const ExitCode code = exitCodeOf(failure.kind());
    code_ = code_ == ExitCode::Success ? code : code_;
    output_.failureOfOne(failure);
    told_[song] = {{"error", errorJson(failure, code)}};
}

Json SongIntake::json() const {
    Json songs = Json::array();
    for (const fs::path& path : given_) {
        Json song({{"file", path}});
        if (const auto told = told_.find(path); told != told_.end()) {
            song.update(told->second);
        }
        songs.push_back(song);
    }
    return songs;
}

} // namespace vesk
