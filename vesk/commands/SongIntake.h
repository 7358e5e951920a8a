#pragma once

#include "audio/songs/RingtoneMaker.h"
#include "audio/songs/SongReader.h"
#include "engine/plan/Change.h"
#include "vesk/invocation/Options.h"
#include "vesk/terminal/Output.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace vesk {

/// The songs that a command was given, on their way to ringtones on a phone. What cannot be used is
/// said, and the others go on; where it is the only one, each of these throws its Failure.
class SongIntake {
public:
    SongIntake(const Options& options, Output& output);

    /// Reads songs.
    void read(const std::vector<std::filesystem::path>& songs);

    /// Whether there are none that can be used.
    bool isEmpty() const;

    /// Whether some cannot be used.
    bool hasFailed() const { return code_ != ExitCode::Success; }

    /// Works out what the phone is to get, with names of their own there.
    /// @param others  what becomes of all else that it holds
    void choose(const PhoneState& state, Others others);

    /// By what a ringtone on the phone is known to be the wanted one.
    enum class Same {
        BySource,      ///< what is written down of it
        BySourceOrSize ///< or, where nothing is, its size
    };

    /// Those ringtones, made where the phone does not hold them already.
    std::vector<LocalRingtone> made(OpenPhone& phone, const PhoneState& state, Same same);

    /// The names that were chosen.
    std::vector<std::string> names() const;

    /// What the command ends with when all else went well.
    ExitCode code() const { return code_; }

    /// What became of each song.
    Json json() const;

private:
    using Wanted = krl::audio::WantedRingtone;

    void fail(const std::filesystem::path& song, const Failure& failure);
    void make(const std::vector<Wanted*>& missing);
    void sayMade(const Wanted& wanted, const krl::audio::SongOutcome& outcome);

    const Options& options_;
    Output& output_;
    krl::audio::RingtoneMaker maker_;
    std::vector<krl::audio::Song> songs_; ///< that could be read
    std::set<std::filesystem::path> failed_;
    std::vector<Wanted> wanted_;
    std::vector<std::filesystem::path> given_;
    std::map<std::filesystem::path, Json> told_; ///< what became of each
    ExitCode code_ = ExitCode::Success;
};

} // namespace vesk
