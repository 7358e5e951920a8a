#pragma once

#include "LocalFile.h"
#include "PhoneState.h"
#include "Plan.h"

#include <string>
#include <vector>

namespace vesk {

/// What is to become of a phone's ringtones. A ringtone that is replaced is in both lists.
struct Change {
    std::vector<LocalRingtone> added;
    std::vector<std::string> removed; ///< names
};

/// A change as the library takes it, and what will come of it.
struct PreparedChange {
    cf::CFRef<CFMutableDictionaryRef> added;
    cf::CFRef<CFMutableDictionaryRef> removed;
    cf::CFRef<CFMutableDictionaryRef> unchanged;
    Plan plan;
    std::map<std::string, std::uint64_t> wanted; ///< names on the phone afterwards and their sizes
};

/// Asks the library for the catalogue that the change leads to and goes through it. Changes
/// nothing.
/// @throw Failure when the catalogue cannot be generated
PreparedChange prepare(Session& session, const PhoneState& state, const Change& change);

} // namespace vesk
