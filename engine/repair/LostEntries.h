#pragma once

#include "engine/files/LocalFile.h"
#include "engine/repair/FoundRingtone.h"
#include "engine/safe/PhoneSafe.h"

#include <set>
#include <string>
#include <vector>

namespace krl::engine {

/// Ringtones that no catalogue lists any more, found again.
struct LostEntries {
    std::vector<FoundRingtone> ringtones;
    size_t known = 0; ///< so many of them, the first ones, have the entry that they had
};

/// Finds entries for files of the ringtone folder that have none: those that they had in a state of
/// that phone which the safe knows, the latest first, by what the files hold and whatever they are
/// called now; and for the rest the titles in their tags. Of those only what has a ringtone's type
/// is taken.
/// @param unlisted  names in the ringtone folder
/// @param now       the phone as it is, in the safe
LostEntries findLostEntries(PhoneSafe& safe, LocalFiles& titles, const Snapshot& now,
                            std::set<std::string> unlisted);

} // namespace krl::engine
