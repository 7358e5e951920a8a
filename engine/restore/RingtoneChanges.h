#pragma once

#include "engine/safe/PhoneSafe.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace krl::engine {

/// The ringtones of a snapshot: the names in its catalogue, with what their files hold.
std::map<std::string, Content> ringtonesIn(PhoneSafe& safe, const Snapshot& snapshot);

/// How the ringtones of two states differ, by their names.
struct RingtoneChanges {
    std::vector<std::string> added;
    std::vector<std::string> removed;
    std::vector<std::string> replaced;
    std::vector<std::pair<std::string, std::string>> renamed; ///< the same sound under a new name
};

RingtoneChanges ringtoneChanges(PhoneSafe& safe, const Snapshot& before, const Snapshot& after);

/// "2 added (A and B), 1 removed (C)"; "nothing" where there is none.
std::string describe(const RingtoneChanges& changes);

} // namespace krl::engine
