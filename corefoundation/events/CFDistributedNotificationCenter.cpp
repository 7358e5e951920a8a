#include "corefoundation/events/DistributedBus.h"
#include "corefoundation/events/DistributedCenter.h"
#include "corefoundation/events/DistributedMessage.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace krl::cf {
namespace {

/// An observer whose run loop does not run misses what comes beyond this many.
constexpr size_t kMostPending = 4096;

using SharedNotification = std::shared_ptr<const DistributedNotification>;

/// An observer, with what has arrived for it and waits for its run loop.
class DistributedRegistration {
public:
    DistributedRegistration(const DistributedObserver& added, std::optional<std::string> name,
                            std::optional<std::string> object)
        : center_(added.center), observer_(added.observer), callBack_(added.callBack),
          name_(std::move(name)), object_(std::move(object)) {}

    /// Has the run loop of this thread call back.
    static void schedule(const std::shared_ptr<DistributedRegistration>& registration) {
        CFRunLoopSourceContext context{};
        context.info = new std::shared_ptr<DistributedRegistration>(registration);
        context.release = [](const void* info) {
            delete static_cast<const std::shared_ptr<DistributedRegistration>*>(info);
        };
        context.perform = [](void* info) {
            (*static_cast<std::shared_ptr<DistributedRegistration>*>(info))->callBackAll();
        };
        registration->source_ = adopt(CFRunLoopSourceCreate(nullptr, 0, &context));
        CFRunLoopAddSource(CFRunLoopGetCurrent(), registration->source_.get(),
                           kCFRunLoopCommonModes);
    }

    bool isFor(const DistributedNotification& notification) const {
        return (!name_ || *name_ == notification.name) &&
               (!object_ || *object_ == notification.object);
    }

    bool wasMadeWith(const void* observer, const std::optional<std::string>& name,
                     const std::optional<std::string>& object) const {
        return observer_ == observer && (!name || name_ == name) && (!object || object_ == object);
    }

    void take(const SharedNotification& notification) {
        {
            const std::lock_guard lock(mutex_);
            if (pending_.size() < kMostPending) {
                pending_.push_back(notification);
            }
        }
        CFRunLoopSourceSignal(source_.get());
    }

    /// Nothing is called back any more.
    void end() {
        isEnded_ = true;
        CFRunLoopSourceInvalidate(source_.get());
    }

private:
    SharedNotification nextPending() {
        const std::lock_guard lock(mutex_);
        if (isEnded_ || pending_.empty()) {
            return nullptr;
        }
        SharedNotification next = pending_.front();
        pending_.pop_front();
        return next;
    }

    void callBackAll() {
        while (const SharedNotification notification = nextPending()) {
            callBack(*notification);
        }
    }

    void callBack(const DistributedNotification& notification) const {
        const auto name = stringOf(notification.name);
        const auto object =
            notification.object.empty() ? CFRef<CFStringRef>() : stringOf(notification.object);
        const auto userInfo = dictionaryOf(notification.userInfo);
        callBack_(center_, const_cast<void*>(observer_), name.get(), object.get(), userInfo.get());
    }

    static CFRef<CFStringRef> stringOf(const std::string& text) {
        return adopt(CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8));
    }

    const CFNotificationCenterRef center_;
    const void* const observer_;
    const CFNotificationCallback callBack_;
    const std::optional<std::string> name_;   ///< nothing: any
    const std::optional<std::string> object_; ///< nothing: any
    CFRef<CFRunLoopSourceRef> source_;        ///< holds this until the end
    std::atomic<bool> isEnded_{false};
    std::mutex mutex_; ///< guards pending_
    std::deque<SharedNotification> pending_;
};

using DistributedRegistrations = std::vector<std::shared_ptr<DistributedRegistration>>;

void deliver(const DistributedNotification& notification);

struct Center {
    std::mutex mutex; ///< guards registrations
    DistributedRegistrations registrations;
    DistributedBus bus{deliver};
};

/// Never ends: observers may be left when the process does.
Center& center() {
    static Center* const theCenter = new Center;
    return *theCenter;
}

void deliver(const DistributedNotification& notification) {
    const auto shared = std::make_shared<const DistributedNotification>(notification);
    const std::lock_guard lock(center().mutex);
    for (const auto& registration : center().registrations) {
        if (registration->isFor(notification)) {
            registration->take(shared);
        }
    }
}

/// What a name has to be; nothing: any. A text that cannot travel gives one that no name is.
std::optional<std::string> filterOf(CFStringRef string) {
    if (string == nullptr) {
        return {};
    }
    return travellingText(string).value_or(std::string(1, '\0'));
}

/// The same for an object. An empty one is none.
std::optional<std::string> objectFilterOf(CFStringRef object) {
    const bool isNone = object == nullptr || CFStringGetLength(object) == 0;
    return filterOf(isNone ? nullptr : object);
}

} // namespace

void addDistributedObserver(const DistributedObserver& added) {
    const auto registration = std::make_shared<DistributedRegistration>(
        added, filterOf(added.name), objectFilterOf(added.object));
    DistributedRegistration::schedule(registration);
    {
        const std::lock_guard lock(center().mutex);
        center().registrations.push_back(registration);
    }
    center().bus.beginUse();
}

void removeDistributedObserver(const void* observer, CFStringRef name, CFStringRef object) {
    const auto wantedName = filterOf(name);
    const auto wantedObject = objectFilterOf(object);
    DistributedRegistrations removed;
    {
        const std::lock_guard lock(center().mutex);
        DistributedRegistrations& all = center().registrations;
        const auto first =
            std::stable_partition(all.begin(), all.end(), [&](const auto& registration) {
                return !registration->wasMadeWith(observer, wantedName, wantedObject);
            });
        std::move(first, all.end(), std::back_inserter(removed));
        all.erase(first, all.end());
    }
    for (const auto& registration : removed) {
        registration->end();
        center().bus.endUse();
    }
}

void postDistributedNotification(CFStringRef name, CFStringRef object, CFDictionaryRef userInfo) {
    const auto nameText = travellingText(name);
    const auto objectText = object != nullptr ? travellingText(object) : std::string();
    if (nameText && objectText) {
        center().bus.post({*nameText, *objectText, travellingInfo(userInfo)});
    }
}

} // namespace krl::cf
