#pragma once

#include "audio/songs/SongIntake.h"
#include "vesk/invocation/Options.h"
#include "vesk/terminal/Output.h"
#include "vesk/terminal/ProgressDisplay.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace vesk {

/// The songs that a command was given, on their way to ringtones on a phone: shows what becomes of
/// them.
class SongIntake : private krl::audio::SongListener {
public:
    SongIntake(const Options& options, Output& output);

    /// Reads songs.
    void read(const std::vector<std::filesystem::path>& songs);

    krl::audio::SongIntake& songs() { return songs_; }

    /// Whether there are none that can be used, although some were given.
    bool isInVain() const { return songs_.isEmpty() && songs_.hasFailed(); }

    /// What the command ends with when all else went well.
    ExitCode code() const { return code_; }

    /// What became of each song.
    Json json() const;

private:
    using Wanted = krl::audio::WantedRingtone;

    void failed(const std::filesystem::path& song, const Failure& failure) override;
    void hasUnreadableTags(const std::vector<std::string>& files) override;
    void makes(size_t done, size_t total) override;
    void made(const Wanted& wanted, const krl::audio::SongOutcome& outcome) override;
    void goes(const Wanted& wanted, bool isHeld) override;

    const Options& options_;
    Output& output_;
    ProgressDisplay display_;
    krl::audio::SongIntake songs_;
    std::vector<std::filesystem::path> given_;
    std::map<std::filesystem::path, Json> told_; ///< what became of each
    ExitCode code_ = ExitCode::Success;
};

} // namespace vesk
