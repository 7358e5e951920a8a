#include <CoreFoundation/CFNotificationCenter.h>

#include "corefoundation/events/DistributedCenter.h"
#include "corefoundation/values/CFRuntime.h"

#include <CoreFoundation/CFRef.h>
#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

namespace krl::cf {

/// One call of CFNotificationCenterAddObserver. A notification that is being delivered shares it,
/// and looks whether it was removed in the meantime.
struct Registration {
    const void* observer;
    CFNotificationCallback callBack;
    CFRef<CFStringRef> name; ///< null: any
    const void* object;      ///< null: any
    std::atomic<bool> isRemoved{false};
};

using Registrations = std::vector<std::shared_ptr<Registration>>;

} // namespace krl::cf

struct __CFNotificationCenter {
    CFObjectHeader header;
    std::mutex mutex{};
    krl::cf::Registrations registrations{};
};

namespace krl::cf {

constinit const ClassTable kNotificationCenterClass{"CFNotificationCenter", nullptr, nullptr,
                                                    nullptr, nullptr};

namespace {

CFNotificationCenterRef createImmortalCenter() {
    auto* center = createObject<__CFNotificationCenter>(kNotificationCenterTypeID, 0);
    center->header.flags = kImmortalFlag;
    return center;
}

bool isDistributed(CFNotificationCenterRef center) {
    return center == CFNotificationCenterGetDistributedCenter();
}

bool isFor(const Registration& registration, CFStringRef name, const void* object) {
    return (!registration.name || CFEqual(registration.name.get(), name)) &&
           (registration.object == nullptr || registration.object == object);
}

bool wasMadeWith(const Registration& registration, CFStringRef name, const void* object) {
    return (name == nullptr || CFEqual(registration.name.get(), name)) &&
           (object == nullptr || registration.object == object);
}

} // namespace
} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFNotificationCenterGetTypeID() noexcept {
    return kNotificationCenterTypeID;
}

CFNotificationCenterRef CFNotificationCenterGetLocalCenter() noexcept {
    static const CFNotificationCenterRef center = createImmortalCenter();
    return center;
}

CFNotificationCenterRef CFNotificationCenterGetDistributedCenter() noexcept {
    static const CFNotificationCenterRef center = createImmortalCenter();
    return center;
}

void CFNotificationCenterAddObserver(CFNotificationCenterRef center, const void* observer,
                                     CFNotificationCallback callBack, CFStringRef name,
                                     const void* object,
                                     CFNotificationSuspensionBehavior) noexcept {
    if (isDistributed(center)) {
        addDistributedObserver(
            {center, observer, callBack, name, static_cast<CFStringRef>(object)});
        return;
    }
    auto registration = std::make_shared<Registration>();
    registration->observer = observer;
    registration->callBack = callBack;
    registration->name =
        name != nullptr ? adopt(CFStringCreateCopy(nullptr, name)) : CFRef<CFStringRef>();
    registration->object = object;
    const std::lock_guard lock(center->mutex);
    center->registrations.push_back(std::move(registration));
}

void CFNotificationCenterRemoveObserver(CFNotificationCenterRef center, const void* observer,
                                        CFNotificationName name, const void* object) noexcept {
    if (isDistributed(center)) {
        removeDistributedObserver(observer, name, static_cast<CFStringRef>(object));
        return;
    }
    const std::lock_guard lock(center->mutex);
    std::erase_if(center->registrations, [&](const auto& registration) {
        const bool removed =
            registration->observer == observer && wasMadeWith(*registration, name, object);
        if (removed) {
            registration->isRemoved = true;
        }
        return removed;
    });
}

void CFNotificationCenterRemoveEveryObserver(CFNotificationCenterRef center,
                                             const void* observer) noexcept {
    CFNotificationCenterRemoveObserver(center, observer, nullptr, nullptr);
}

void CFNotificationCenterPostNotification(CFNotificationCenterRef center, CFNotificationName name,
                                          const void* object, CFDictionaryRef userInfo,
                                          Boolean) noexcept {
    if (isDistributed(center)) {
        postDistributedNotification(name, static_cast<CFStringRef>(object), userInfo);
        return;
    }
    Registrations receivers;
    {
        const std::lock_guard lock(center->mutex);
        std::copy_if(center->registrations.begin(), center->registrations.end(),
                     std::back_inserter(receivers),
                     [&](const auto& registration) { return isFor(*registration, name, object); });
    }
    for (const auto& receiver : receivers) {
        if (!receiver->isRemoved) {
            receiver->callBack(center, const_cast<void*>(receiver->observer), name, object,
                               userInfo);
        }
    }
}
