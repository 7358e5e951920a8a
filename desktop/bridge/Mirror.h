#pragma once

#include "audio/preparing/Wish.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace krl::desktop {

/// Ringtones that a phone holds for a folder: their names, and what tells each from another one of its
/// name.
using HeldRingtones = std::map<std::string, std::string>;

/// A folder that a phone mirrors.
struct Mirror {
    static constexpr size_t kMostWishes = 50;

    std::filesystem::path folder;
    std::string phone = {};      ///< its name, to show while it is away
    bool isAgreed = false;       ///< the person has seen what it does and wants it
    bool isPaused = false;       ///< until the person switches it on again
    std::string passedOver = {}; ///< the job that was taken back and is not to pause it again
    HeldRingtones held = {};     ///< by the last run
    std::vector<audio::Wish> wishes = {}; ///< by which its ringtones were made, the newest last

    friend bool operator==(const Mirror&, const Mirror&) = default;
};

/// What would go from the phone: a ringtone, or a file that its list does not have.
struct Loss {
    std::string name;
    std::string identity;    ///< tells it from another one of its name
    bool isReplaced = false; ///< a song of the folder comes in its place

    friend auto operator<=>(const Loss&, const Loss&) = default;
};

/// What the person knows of the folder.
struct MirrorTerms {
    bool isAgreed = false;
    HeldRingtones held = {};    ///< that go without a question when the folder has lost them
    std::set<Loss> agreed = {}; ///< that the person has agreed to
};

/// What a run would do.
struct MirrorPlan {
    std::vector<std::string> added; ///< names, without what is replaced
    std::set<Loss> losses;
};

/// Whether the person has to be asked before it is done: the first time; when more would go than what
/// the folder has lost since the last run; and when nothing of that run would stay, for a folder that
/// is empty at once may be a disk that is not there.
bool mustAsk(const MirrorPlan& plan, const MirrorTerms& terms);

/// Why a mirror does nothing, or what it does.
enum class MirrorState {
    UpToDate,
    Due, ///< begins as soon as the news of this moment are all heard
    AtWork,
    Asks, ///< the person is to say whether the plan is right
    Paused,
    WaitsForEdits,
    Interrupted, ///< another job was broken off, and the person is asked about that
    Unreadable,  ///< the phone's list
    Unsuitable,  ///< the phone's firmware
    Failed
};

/// What there is to know for that.
struct MirrorFacts {
    bool isAtWork = false;
    bool isPaused = false;
    bool isKnownFirmware = true;
    bool isListReadable = true;
    bool hasBrokenJob = false; ///< of another one
    bool hasEdits = false;     ///< that are not synced
    bool hasQuestion = false;
    bool isDue = false;
    bool hasFailed = false;
};

MirrorState mirrorState(const MirrorFacts& facts);

} // namespace krl::desktop
