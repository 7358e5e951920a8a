#pragma once

#include "python/core/Changes.h"
#include "python/core/Fetches.h"
#include "python/core/Hub.h"
#include "python/core/Job.h"

#include <memory>
#include <string>

namespace krl::python {

// What can be asked of phones. Each begins the work and returns at once.

using JobRef = std::shared_ptr<Job>;

/// The phone that is meant, and can be used.
/// @param text     a UDID, the beginning of one or a name; empty: the only phone
/// @param seconds  to wait for it
JobRef find(Hub& hub, const std::string& text, double seconds);

/// What a phone says of itself, and what is on it.
JobRef info(Hub& hub, const std::string& udid);

JobRef ringtones(Hub& hub, const std::string& udid);

JobRef history(Hub& hub, const std::string& udid);

JobRef fetchAll(Hub& hub, const std::string& udid, const WantedFetch& wanted);

JobRef planOf(Hub& hub, const std::shared_ptr<ChangeOfPhone>& change);

JobRef syncOf(Hub& hub, const std::shared_ptr<ChangeOfPhone>& change);

JobRef undo(Hub& hub, const std::string& udid, bool isForced);

JobRef goBack(Hub& hub, const std::string& udid, const std::string& before);

JobRef pair(Hub& hub, const std::string& udid);

JobRef unpair(Hub& hub, const std::string& udid);

} // namespace krl::python
