#pragma once

#include <KRLVesk/KRLBase.h>

#include <functional>

/// Stands in for the store records, so that the phone is tested without the room above it.
struct StoreStandIn {
    /// Records made so far.
    static int made;
    /// Called with the phone of a record that is being released.
    static std::function<void(KRTPhoneRef)> onRelease;
    static void reset();
};
