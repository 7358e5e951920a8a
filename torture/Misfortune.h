/// What can go wrong while a job is done.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace torture {

struct Job;

/// Something that happens at one moment of a job: when it makes its n-th request to one of the phone's
/// services or to the mux daemon, or its n-th call to this computer's disk.
struct Misfortune {
    std::string place;   ///< "usbmux", "lockdown", "afc", "notification_proxy", "disk"
    uint32_t number = 1; ///< of the request or the call, counted over the place
    std::string action;

    /// "afc#12=silent".
    std::string text() const;

    /// Whether it concerns nobody but this vesk and its phone.
    bool isPrivate() const;

    /// Whether it is a fault in the phone's answer, and not something else at that moment.
    bool isAnswer() const;

    bool isOnDisk() const { return place == kDisk; }

    /// How it is called in the table of kinds.
    std::string kind() const;

    static constexpr char kDisk[] = "disk";
};

// What happens at a moment, and is not in the phone's answer.

inline constexpr char kPhoneFull[] = "phone-full";
inline constexpr char kPhoneNearlyFull[] = "phone-nearly-full";
/// Another program has the sync lock until the job ends.
inline constexpr char kLockTaken[] = "lock-taken";
/// Another program puts a ringtone of its own on the phone, under the sync lock.
inline constexpr char kOtherProgram[] = "other-program";
/// A second vesk adds a ringtone, at the same time, with the same safe.
inline constexpr char kOtherVesk[] = "other-vesk";
/// A second vesk of somebody else does: it has a safe of its own.
inline constexpr char kOtherUser[] = "other-user";
/// The phone is pulled out and put back at once.
inline constexpr char kReplugged[] = "replugged";
/// The phone is pulled out and another one put in its place.
inline constexpr char kSwapped[] = "swapped";
/// The same, while vesk was told which phone is meant.
inline constexpr char kSwappedChosen[] = "swapped-chosen";

/// The signal of that name, or 0.
int signalOf(const std::string& action);

/// Several, one after the other: "afc#12=silent,disk#3=killed".
std::string textOf(const std::vector<Misfortune>& misfortunes);

/// Reads such a text.
/// @throw std::invalid_argument
std::vector<Misfortune> misfortunesIn(const std::string& text);

/// How often each place is met when a job is done without any misfortune.
using Occasions = std::map<std::string, uint32_t>;

/// All that can happen to a job.
std::vector<Misfortune> misfortunesOf(const Job& job, const Occasions& occasions);

} // namespace torture
