#pragma once

#include <optional>

namespace krl::ringtones {

/// What "ringtonesUpdated" is set to after the working list was started again from the phone;
/// nothing when it stays as it is, without a notice.
///
/// @param hasProblems  a check of the phone's list
template <typename Check>
std::optional<bool> updatedAfterRebuild(Check hasProblems, bool wasPending, bool needsConversion) {
    if (hasProblems()) {
        // Contract: when changes were pending, the check is made once more and its answer counts.
        // [RebuildRule.SaysWhatIsToBeSynced]
        return wasPending ? hasProblems() : true;
    }
    if (wasPending) {
        // Contract: dropped changes leave nothing to sync, even when a conversion is due. The next
        // rebuild says so.
        // [ListModel.ARebuildThatDropsChangesSaysFalseAndTheNextOneThatConversionIsDue]
        return false;
    }
    return needsConversion ? std::optional(true) : std::nullopt;
}

} // namespace krl::ringtones
