#pragma once

#include "audio/songs/SongFolder.h"
#include "audio/songs/SongIntake.h"
#include "engine/change/ChangeJob.h"
#include "engine/jobs/ChangeNotes.h"
#include "python/core/Job.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace krl::python {

/// What is to become of a phone's ringtones.
struct WantedChange {
    std::vector<audio::SongIntake::Given> songs;
    std::vector<std::string> removed;                         ///< names
    std::vector<std::pair<std::string, std::string>> renamed; ///< names and new ones
    std::optional<std::filesystem::path> folder;              ///< songs are those in it
    bool isRecursive = false;                                 ///< and in the folders in it
    bool isWhole = false;     ///< the phone is to hold the songs and nothing else
    bool isConsented = false; ///< everything may be removed
    bool replaces = false;    ///< what has the name of a song
    audio::Recipe recipe = {};
    audio::NameSource nameSource = audio::NameSource::Tags;
    bool isForced = false;
    bool rebuilds = false;
    bool keeps = true;
};

/// A song that is among several and cannot be used.
struct UnusableSong {
    std::filesystem::path path;
    engine::Failure failure;
};

/// What becomes of a song that can.
struct UsedSong {
    std::filesystem::path path;
    std::string ringtone; ///< its name
    bool isHeld = false;  ///< the phone has it already
    bool isPrepared = false;
};

/// A change as it would be made.
struct Planned {
    engine::PhoneFacts facts;
    std::vector<std::string> added;
    std::vector<std::string> removed; ///< what is replaced is in both
    std::vector<std::pair<std::string, std::string>> renamed;
    engine::Plan plan;
    std::vector<std::string> putRight; ///< ringtones that a sync would lose as they lie there
    std::vector<UsedSong> songs;
    std::vector<UnusableSong> unusable;
    std::vector<std::string> skipped; ///< what is no song in the folder
    std::vector<std::string> unreadableTags;
};

/// One change of one phone, with what was made for it. Its work is done on the phones' thread.
class ChangeOfPhone {
public:
    ChangeOfPhone(std::string udid, WantedChange wanted);
    ~ChangeOfPhone();
    ChangeOfPhone(const ChangeOfPhone&) = delete;
    ChangeOfPhone& operator=(const ChangeOfPhone&) = delete;

    /// Works it out. Changes nothing on the phone.
    Planned plan(Job& job);

    /// Carries it out.
    /// @throw Failure when it was planned and the plan is another one now
    engine::ChangeDone sync(Job& job);

private:
    class Songs;
    class Notes;

    void readSongs(Job& job);
    void run(Job& job, bool isDryRun, Notes& notes);
    void edit(engine::OpenPhone& phone, const engine::PhoneState& state);
    engine::PhoneState rename(engine::OpenPhone& phone, const engine::PhoneState& state);
    std::string what() const;

    const std::string udid_;
    const WantedChange wanted_;
    std::unique_ptr<Songs> songs_;
    std::vector<std::string> skipped_;
    bool hasSongs_ = true;
    std::optional<std::vector<engine::Operation>> expected_;
};

} // namespace krl::python
