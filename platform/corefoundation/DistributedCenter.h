/** What the distributed notification centre does. Internal. */
#ifndef COREFOUNDATION_DISTRIBUTEDCENTER_H
#define COREFOUNDATION_DISTRIBUTEDCENTER_H

#include <CoreFoundation/CFNotificationCenter.h>

namespace krl::cf {

struct DistributedObserver {
    const void* observer;
    CFNotificationCallback callBack;
    CFStringRef name;   ///< null: any
    CFStringRef object; ///< null: any
};

void addDistributedObserver(const DistributedObserver& added);
void removeDistributedObserver(const void* observer, CFStringRef name, CFStringRef object);
void postDistributedNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo);

} // namespace krl::cf

#endif
