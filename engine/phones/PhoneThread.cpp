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
        CFRunLoopStop(loop_.get());
        // Again and again: after a call that was ended the next device may be asked.
        if (AMDeviceCancelCalls != nullptr) {
            AMDeviceCancelCalls(nullptr);
        }
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

void PhoneThread::run() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr); // they are for the program's own threads
    loop_ = krl::cf::retain(CFRunLoopGetCurrent());
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
    }
    news.reset();
    ended_.set_value();
}

void PhoneThread::deliver(DeviceNews::Item item) {
    const std::lock_guard lock(mutex_);
    news_.push_back(std::move(item));
    eventfd_write(event_, 1);
}

} // namespace krl::engine
