#include "engine/phones/PhoneThread.h"

#include <MobileDevice/MobileDevice.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <system_error>
#include <utility>

namespace krl::engine {
namespace {

int newEvent() {
    const int event = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (event < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor for news of phones");
    }
    return event;
}

} // namespace

PhoneThread::PhoneThread() : event_(newEvent()), thread_([this] { run(); }) {
    try {
        started_.get_future().get();
    } catch (...) {
        thread_.join();
        ::close(event_);
        throw;
    }
}

PhoneThread::~PhoneThread() {
    isEnding_ = true;
    const std::future<void> end = ended_.get_future();
    do {
        endWaits(); // again and again: after a call that was ended the next device may be asked
    } while (end.wait_for(std::chrono::milliseconds{5}) != std::future_status::ready);
    thread_.join();
    ::close(event_);
}

std::vector<DeviceNews::Item> PhoneThread::take() {
    eventfd_t count = 0;
    eventfd_read(event_, &count);
    const std::lock_guard lock(mutex_);
    return std::exchange(news_, {});
}

void PhoneThread::post(std::function<void()> work) {
    {
        const std::lock_guard lock(mutex_);
        posted_.push_back(std::move(work));
    }
    CFRunLoopSourceSignal(bell_.get());
    CFRunLoopWakeUp(loop_.get());
}

void PhoneThread::endWaits() {
    CFRunLoopStop(loop_.get());
    if (AMDeviceCancelCalls != nullptr) {
        AMDeviceCancelCalls(nullptr);
    }
}

/// Ends the wait for news. Work that runs the run loop itself is left alone: it looks for more
/// afterwards.
krl::cf::CFRef<CFRunLoopSourceRef> PhoneThread::newBell() {
    CFRunLoopSourceContext context = {};
    context.info = this;
    context.perform = [](void* self) {
        if (!static_cast<PhoneThread*>(self)->isWorking_) {
            CFRunLoopStop(CFRunLoopGetCurrent());
        }
    };
    return krl::cf::adopt(CFRunLoopSourceCreate(nullptr, 0, &context));
}

void PhoneThread::run() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr); // they are for the program's own threads
    loop_ = krl::cf::retain(CFRunLoopGetCurrent());
    bell_ = newBell();
    CFRunLoopAddSource(loop_.get(), bell_.get(), kCFRunLoopDefaultMode);
    std::unique_ptr<DeviceNews> news;
    try {
        news = std::make_unique<DeviceNews>();
    } catch (...) {
        started_.set_exception(std::current_exception());
        return;
    }
    started_.set_value();
    while (!isEnding_) {
        if (auto item = news->next(std::chrono::hours{24})) {
            deliver(*std::move(item));
        }
        work();
    }
    CFRunLoopSourceInvalidate(bell_.get());
    news.reset();
    ended_.set_value();
}

void PhoneThread::work() {
    isWorking_ = true;
    while (const auto work = nextWork()) {
        // The bell may have stopped a loop that returned with news all the same, or the end of its waits
        // have come when work had ended: work that runs one is not to be stopped by that.
        CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, /*returnAfterSourceHandled=*/true);
        (*work)();
    }
    isWorking_ = false;
}

std::optional<std::function<void()>> PhoneThread::nextWork() {
    const std::lock_guard lock(mutex_);
    if (posted_.empty() || isEnding_) {
        return std::nullopt;
    }
    auto next = std::move(posted_.front());
    posted_.pop_front();
    return next;
}

void PhoneThread::deliver(DeviceNews::Item item) {
    const std::lock_guard lock(mutex_);
    news_.push_back(std::move(item));
    eventfd_write(event_, 1);
}

} // namespace krl::engine
