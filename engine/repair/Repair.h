#pragma once

#include "engine/repair/RepairPlanning.h"
#include "engine/restore/SafeKeeping.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

/// A change of a phone that is put right with it: one job, which is undone as one.
struct Repair {
    /// A ringtone that is put right.
    struct Ringtone {
        std::string file;    ///< as it lies there
        std::string newFile; ///< empty when the change takes the ringtone off
        std::string name;
        std::string oldName;   ///< empty when the catalogue had none for it
        bool wasListed = true; ///< the catalogue has an entry for it
        bool isTitled = false; ///< and nothing is known of one that it had
    };

    PhoneState state;      ///< the phone put right, before the change
    PreparedChange change; ///< its operations are those of the whole, on the phone as it lies there
    std::vector<Ringtone> ringtones;
    std::vector<std::string> unreadableTags; ///< files whose tags could not be read for a name

    Snapshot before;
    Snapshot after;
    RestorePlan steps; ///< from one to the other
};

/// Why a phone is to be put right.
enum class RepairCause {
    WouldLose, ///< ringtones that its catalogue lists would be lost
    Unlisted   ///< there are ringtones that its catalogue does not list
};

/// Whether there are files with sound that nothing lists, of a type that ringtones have.
bool hasUnlistedRingtones(const PhoneState& phone);

/// Works out how a change can be made without a loss: what the phone holds is taken into the safe,
/// the phone is put right in memory, and the library makes the change on that. What comes of it is
/// one way from the phone as it lies there to the phone as it is to be. Changes nothing on the phone.
/// @param phone  read completely, from this phone
/// @return none when no names are found with which nothing is lost
/// @throw Failure when the safe cannot take what the phone holds, ChangedMeanwhile when another
///        program was quicker
std::optional<Repair> planRepair(OpenPhone& phone, SafeKeeping& keeping, const PhoneState& state,
                                 RepairCause cause, const Edit& edit);

/// Carries it out under the phone's sync lock, and looks at the phone afterwards.
/// @throw ChangedMeanwhile when another program was quicker
/// @throw Failure unless the phone holds exactly what was wanted; it has been put back as it was
///        then, or the next command does it
void carryOut(OpenPhone& phone, SafeKeeping& keeping, const PhoneFacts& facts,
              const Repair& repair);

} // namespace krl::engine
