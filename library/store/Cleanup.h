#pragma once

#include "library/store/NameSets.h"

#include <KRLVesk/KRLBase.h>

namespace krl::ringtones {

/// Deletes from the ringtone folder everything that is not kept.
void cleanUpRingtonesFolder(KRTPhoneRef phone, const NameSet& kept);

} // namespace krl::ringtones
