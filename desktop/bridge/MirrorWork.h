#pragma once

#include "audio/songs/SongIntake.h"
#include "desktop/bridge/Mirror.h"
#include "desktop/bridge/PhoneWork.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace krl::desktop {

/// A song of a folder that is no ringtone.
struct UnusableSong {
    std::filesystem::path path;
    std::string reason;
};

/// The songs of a folder, on their way to one phone. On one thread at a time.
class MirrorSongs : private audio::SongListener {
public:
    /// @param wish     how songs become ringtones
    /// @param earlier  those that the phone holds by one of these stay
    MirrorSongs(std::filesystem::path folder, const audio::Wish& wish,
                std::vector<audio::Wish> earlier);

    /// Reads them, and makes of them what the phone lacks. One that somebody writes at this moment
    /// counts as one that cannot be used.
    /// @throw Failure when the folder cannot be read
    void prepare(const PhoneReading& phone, const WorkWatch& watch);

    audio::SongIntake& intake() { return intake_; }

    const std::filesystem::path& folder() const { return folder_; }

    bool isEmpty() const { return isEmpty_; }

    /// Whether there are songs, and none that can be used.
    bool isInVain() const { return !isEmpty_ && (intake_.isEmpty() || !aloneFailed_.empty()); }

    const std::vector<UnusableSong>& unusable() const { return unusable_; }

private:
    void failed(const std::filesystem::path& song, const engine::Failure& failure) override;

    void hasUnreadableTags(const std::vector<std::string>& /*files*/) override {}

    void makes(size_t done, size_t total) override;

    void made(const audio::WantedRingtone& /*wanted*/,
              const audio::SongOutcome& /*outcome*/) override {}

    void goes(const audio::WantedRingtone& /*wanted*/, bool /*isHeld*/) override {}

    void read(const std::vector<std::filesystem::path>& songs);

    const std::filesystem::path folder_;
    audio::SongIntake intake_;
    bool isEmpty_ = true;
    std::string aloneFailed_; ///< the only song, when it cannot be used
    std::vector<UnusableSong> unusable_;
    const WorkWatch* watch_ = nullptr; ///< while they are prepared
};

/// The phone holds what is in the folder.
struct MirrorDone {
    ChangeDone change;
    HeldRingtones held;
};

/// What came of a run: done, or a plan that the person has to agree to, of which nothing is done.
using MirrorOutcome = std::variant<MirrorDone, MirrorPlan>;

/// Makes a phone hold what is in a folder, on the thread that knows phones.
/// @throw Failure
MirrorOutcome mirrorPhone(const std::string& udid, MirrorSongs& songs, const MirrorTerms& terms,
                          std::optional<size_t> keptJobs, const WorkWatch& watch);

/// What such a job is called in the history.
inline constexpr char kMirrorJob[] = "mirror";

} // namespace krl::desktop
