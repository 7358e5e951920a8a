#pragma once

#include "engine/restore/PhoneFiles.h"
#include "engine/safe/PhoneSafe.h"

#include <cstdint>
#include <functional>

namespace krl::engine {

/// Hears how many bytes have been moved, of how many.
using ByteProgress = std::function<void(uint64_t done, uint64_t total)>;

/// Takes the ringtone side of a phone into the safe as it is now. Only what the safe does not have
/// is read: a file that has name, size and time of change as in the index is the one that it was.
/// Early phones tell no time; on them that holds for as long as the catalogue is one of the index's, which
/// whoever changes ringtones writes anew.
Snapshot takeSnapshot(PhoneFiles& files, PhoneSafe& safe, const Index& index,
                      const ByteProgress& progress);

} // namespace krl::engine
