#include <KRLVesk/KRTPluginValidator.h>

#include "library/startup/SupportPlugin.h"

#include <chrono>

using krl::cf::adopt;
using krl::cf::CFRef;

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr Seconds kTimeToAnswer{6.0};

CFStringRef pingName() {
    return CFSTR("com.QuellmarSW.HarlixSupport.Ping");
}

CFStringRef pongName() {
    return CFSTR("com.QuellmarSW.HarlixSupport.Pong");
}

CFStringRef pluginObject() {
    return CFSTR("com.QuellmarSW.HarlixSupport");
}

void handlePong(CFNotificationCenterRef, void* observer, CFNotificationName, const void*,
                CFDictionaryRef userInfo) {
    static_cast<KRTPluginValidator*>(observer)->_pongSeen(userInfo);
}

/// Runs this thread's run loop for all of that time, also when somebody stops it meanwhile.
void runLoopFor(Seconds duration) {
    const auto end = Clock::now() + duration;
    for (Seconds left = duration; left > Seconds::zero(); left = end - Clock::now()) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, left.count(), false);
    }
}

} // namespace

bool KRTValidatePlugin() {
    return KRTPluginValidator::validator()->isValid();
}

KRTPluginValidator::KRTPluginValidator() : _valid(false) {}

// validator
std::shared_ptr<KRTPluginValidator> KRTPluginValidator::validator() {
    return init();
}

// init
std::shared_ptr<KRTPluginValidator> KRTPluginValidator::init() {
    return std::shared_ptr<KRTPluginValidator>(new KRTPluginValidator);
}

// isValid
bool KRTPluginValidator::isValid() {
    const CFNotificationCenterRef center = CFNotificationCenterGetDistributedCenter();
    CFNotificationCenterAddObserver(center, this, handlePong, pongName(), pluginObject(),
                                    CFNotificationSuspensionBehaviorDeliverImmediately);
    CFNotificationCenterPostNotification(center, pingName(), pluginObject(), nullptr, false);
    // Contract: the whole time, however early the answer comes.
    // [Validator.AnswersByThePongsAndTakesTheWholeSixSeconds]
    runLoopFor(kTimeToAnswer);
    CFNotificationCenterRemoveObserver(center, this, pongName(), pluginObject());
    return _valid;
}

// _pongSeen:
void KRTPluginValidator::_pongSeen(CFDictionaryRef userInfo) {
    // Contract: never set back, so that of several plug-ins one that is recent is enough.
    // [Validator.AnswersByThePongsAndTakesTheWholeSixSeconds]
    if (krl::plugin::isRecentEnough(userInfo)) {
        _valid = true;
    }
}

// generateUUIDString
CFRef<CFStringRef> NSStringUUIDAdditions::generateUUIDString() {
    const auto uuid = adopt(CFUUIDCreate(nullptr));
    const auto text = adopt(CFUUIDCreateString(nullptr, uuid.get()));
    const auto groups =
        adopt(CFStringCreateArrayBySeparatingStrings(nullptr, text.get(), CFSTR("-")));
    return adopt(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@%@"),
                                          CFArrayGetValueAtIndex(groups.get(), 0),
                                          CFArrayGetValueAtIndex(groups.get(), 1)));
}
