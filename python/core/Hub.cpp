#include "python/core/Hub.h"

#include "python/core/WithoutLock.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace krl::python {

namespace py = pybind11;
using engine::Failure;
using engine::FailureKind;

namespace {

std::weak_ptr<Hub> theOne; // with Python's lock alone

int required(int descriptor) {
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor for phones");
    }
    return descriptor;
}

void watch(int epoll, int descriptor) {
    epoll_event event = {};
    event.events = EPOLLIN;
    required(epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event));
}

Failure closed() {
    return {FailureKind::Cancelled, "cancelled: the phones were closed"};
}

} // namespace

std::shared_ptr<Hub> Hub::open() {
    if (const auto there = theOne.lock(); there && !there->isClosed()) {
        throw std::runtime_error("there is an open Phones already: one at a time");
    }
    const std::shared_ptr<Hub> hub(new Hub);
    theOne = hub;
    return hub;
}

Bell::Bell() : event_(required(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {}

Bell::~Bell() {
    ::close(event_);
}

void Bell::ring() {
    eventfd_write(event_, 1);
}

void Bell::take() {
    eventfd_t count = 0;
    eventfd_read(event_, &count);
}

Hub::Hub() : bell_(std::make_shared<Bell>()), descriptor_(required(epoll_create1(EPOLL_CLOEXEC))) {
    try {
        const WithoutLock without;
        thread_ = std::make_shared<engine::PhoneThread>();
        watch(descriptor_, bell_->descriptor());
        watch(descriptor_, thread_->descriptor());
    } catch (...) {
        ::close(descriptor_);
        throw;
    }
}

Hub::~Hub() {
    close();
    ::close(descriptor_);
}

bool Hub::isClosed() const {
    const std::lock_guard lock(mutex_);
    return thread_ == nullptr;
}

std::shared_ptr<engine::PhoneThread> Hub::openThread() const {
    const std::lock_guard lock(mutex_);
    if (!thread_) {
        throw py::value_error("the phones are closed");
    }
    return thread_;
}

int Hub::descriptor() const {
    openThread();
    return descriptor_;
}

std::vector<engine::DeviceNews::Item> Hub::takeNews() {
    return openThread()->take();
}

void Hub::takeBell() {
    openThread();
    bell_->take();
}

std::shared_ptr<Job> Hub::start(Job::Kind kind, std::function<Job::Result(Job&)> work) {
    if (isHearing()) {
        throw std::runtime_error("the phones are busy with the call that this callback is of");
    }
    openThread();
    const auto job = std::make_shared<Job>(kind, [bell = bell_] { bell->ring(); });
    const auto carryOut = [job, work = std::move(work)] {
        try {
            if (job->isCancelled()) {
                throw Failure(FailureKind::Cancelled,
                              "cancelled; nothing was changed on the phone");
            }
            job->finish(work(*job));
        } catch (const Failure& failure) {
            job->fail(failure);
        } catch (const std::exception& error) {
            job->fail(Failure(FailureKind::Unexpected, error.what()));
        }
    };
    const std::lock_guard lock(mutex_);
    if (!thread_) {
        job->fail(closed());
        return job;
    }
    std::erase_if(jobs_, [](const auto& one) { return one.expired(); });
    jobs_.push_back(job);
    thread_->post(carryOut);
    return job;
}

std::vector<std::shared_ptr<Job>> Hub::jobsUnderWay() const {
    std::vector<std::shared_ptr<Job>> result;
    for (const auto& one : jobs_) {
        if (auto job = one.lock(); job && !job->isDone()) {
            result.push_back(std::move(job));
        }
    }
    return result;
}

void Hub::close() {
    std::shared_ptr<engine::PhoneThread> thread;
    std::vector<std::shared_ptr<Job>> jobs;
    {
        const std::lock_guard lock(mutex_);
        thread = std::move(thread_);
        jobs = jobsUnderWay();
    }
    for (const auto& job : jobs) {
        job->cancel();
    }
    for (const auto& job : jobs) {
        if (job->kind() == Job::Kind::Writes) {
            job->waitForEnd(); // the thread's end would end its calls to the phone half-way
        }
    }
    thread.reset();
    for (const auto& job : jobs) {
        job->fail(closed());
    }
    bell_->ring();
}

void Hub::closeAtExit() {
    if (const auto hub = theOne.lock()) {
        const WithoutLock without;
        hub->close();
    }
    WithoutLock::end();
}

} // namespace krl::python
