/// What the distributed notification centre does. Internal.
#pragma once

#include <CoreFoundation/CFNotificationCenter.h>

namespace krl::cf {

struct DistributedObserver {
    CFNotificationCenterRef center; ///< the one to name when it is called back
    const void* observer;
    CFNotificationCallback callBack;
    CFStringRef name;   ///< null: any
    CFStringRef object; ///< null: any
};

void addDistributedObserver(const DistributedObserver& added);
void removeDistributedObserver(const void* observer, CFStringRef name, CFStringRef object);
void postDistributedNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo);

} // namespace krl::cf
