#pragma once

#include "mobiledevice/provider/wire/Channel.h"

#include <MobileDevice/MobileDevice.h>

#include <cstdint>

namespace krl::provider {

/// What a call on lockdown, the notification proxy or the mux daemon answers when its channel gave
/// this.
inline int32_t statusOf(IoResult result) {
    switch (result) {
    case IoResult::Done:
        return 0;
    case IoResult::Closed:
        return kAMDNotConnected;
    case IoResult::Cancelled:
        return kAMDCancelled;
    case IoResult::TimedOut:
        return kAMDTimedOut;
    }
    return kAMDNotConnected;
}

} // namespace krl::provider
