#include "engine/phones/RemovalWatch.h"

#include <CoreFoundation/CoreFoundation.h>

#include <csignal>

namespace krl::engine {
namespace {

/// The callback is given no context; it comes on the thread that has subscribed.
thread_local RemovalWatch* watchOfThread = nullptr;

} // namespace

RemovalWatch::RemovalWatch(am_device* device) : device_(device), thread_([this] { run(); }) {
    listens_.get_future().wait();
}

RemovalWatch::~RemovalWatch() {
    isEnding_ = true;
    thread_.join();
}

void RemovalWatch::hear(am_device_notification_info* news) {
    if (news->message == kAMDeviceMessageDisconnected && news->device == watchOfThread->device_) {
        watchOfThread->isGone_ = true;
    }
}

void RemovalWatch::run() {
    constexpr CFTimeInterval kMoment = 0.05;
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr); // they are for the program's own threads
    watchOfThread = this;
    am_device_notification* subscription = nullptr;
    const int32_t status = AMDeviceNotificationSubscribe(hear, 0, 0, nullptr, &subscription);
    listens_.set_value();
    if (status != 0) {
        return;
    }
    while (!isEnding_ && !isGone_) {
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, kMoment, /*returnAfterSourceHandled=*/true);
    }
    AMDShutdownNotificationProxy(subscription);
}

} // namespace krl::engine
