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

// With Python's lock alone.
std::weak_ptr<Hub> theOne;
pid_t user = 0; ///< the process that has opened phones

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
    if (user == 0) {
        user = ::getpid();
    }
    if (user != ::getpid()) {
        throw std::runtime_error(
            "phones cannot be opened in a process that was forked off one with phones: start "
            "a new one (with multiprocessing the method \"spawn\")");
    }
    if (const auto there = theOne.lock(); there && !there->hasEnded()) {
        throw std::runtime_error("there is an open Phones already: one at a time");
    }
    const std::shared_ptr<Hub> hub(new Hub);
    theOne = hub; // before anybody else has Python's lock
    const WithoutLock without;
    hub->begin();
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

Hub::Hub()
    : bell_(std::make_shared<Bell>()), descriptor_(required(epoll_create1(EPOLL_CLOEXEC))),
      owner_(::getpid()) {}

void Hub::begin() {
    try {
        watch(descriptor_, bell_->descriptor());
        auto thread = std::make_unique<engine::PhoneThread>();
        watch(descriptor_, thread->descriptor());
        enter(State::Open, std::move(thread));
    } catch (...) {
        enter(State::Closed, nullptr);
        throw;
    }
}

Hub::~Hub() {
    close();
    ::close(descriptor_);
    if (!isOfThisProcess()) {
        static_cast<void>(thread_.release()); // there is no such thread here to be waited for
    }
}

bool Hub::isOfThisProcess() const {
    return owner_ == ::getpid();
}

void Hub::enter(State state, std::unique_ptr<engine::PhoneThread> thread) {
    const std::lock_guard lock(mutex_);
    state_ = state;
    thread_ = std::move(thread);
    changed_.notify_all();
}

bool Hub::isClosed() const {
    if (!isOfThisProcess()) {
        return true;
    }
    const std::lock_guard lock(mutex_);
    return state_ != State::Open;
}

bool Hub::hasEnded() const {
    const std::lock_guard lock(mutex_);
    return state_ == State::Closed;
}

std::unique_lock<std::mutex> Hub::lockOpen() const {
    if (!isOfThisProcess()) {
        throw py::value_error("the phones are those of the process that this one was forked off");
    }
    std::unique_lock lock(mutex_);
    if (state_ != State::Open) {
        throw py::value_error("the phones are closed");
    }
    return lock;
}

int Hub::descriptor() const {
    const auto lock = lockOpen();
    return descriptor_;
}

std::vector<engine::DeviceNews::Item> Hub::takeNews() {
    const auto lock = lockOpen();
    return thread_->take();
}

void Hub::takeBell() {
    const auto lock = lockOpen();
    bell_->take();
}

void Hub::ring() {
    const auto lock = lockOpen();
    bell_->ring();
}

std::shared_ptr<Job> Hub::start(Job::Kind kind, std::function<Job::Result(Job&)> work) {
    if (isHearing()) {
        throw std::runtime_error("the phones are busy with the call that this callback is of");
    }
    const auto job = std::make_shared<Job>(
        kind, [bell = bell_] { bell->ring(); },
        [hub = weak_from_this()](Job& cancelled) {
            if (const auto there = hub.lock()) {
                there->endWaitsOf(cancelled);
            }
        });
    const auto carryOut = [this, kind, job, work = std::move(work)] {
        if (!begins(job)) {
            return;
        }
        try {
            job->finish(work(*job));
        } catch (const Failure& failure) {
            job->fail(kind == Job::Kind::Reads && job->isCancelled() ? cancelled() : failure);
        } catch (const std::exception& error) {
            job->fail(Failure(FailureKind::Unexpected, error.what()));
        }
        const std::lock_guard lock(mutex_);
        running_.reset();
    };
    const auto lock = lockOpen();
    std::erase_if(jobs_, [](const auto& one) { return one.expired(); });
    jobs_.push_back(job);
    thread_->post(carryOut);
    return {job.get(), [job](Job* /*waited for*/) { job->cancel(); }};
}

/// On the phones' thread.
bool Hub::begins(const std::shared_ptr<Job>& job) {
    const std::lock_guard lock(mutex_);
    if (job->isCancelled()) {
        job->fail(cancelled());
        return false;
    }
    running_ = job;
    return true;
}

/// Under the lock, so that no other job begins meanwhile and has its waits ended.
void Hub::endWaitsOf(Job& job) {
    if (!isOfThisProcess()) {
        return;
    }
    const std::lock_guard lock(mutex_);
    if (running_.get() != &job) {
        job.fail(cancelled()); // unless it is over
    } else if (job.kind() == Job::Kind::Reads && thread_) {
        thread_->endWaits();
    }
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
    if (!isOfThisProcess()) {
        return;
    }
    std::unique_ptr<engine::PhoneThread> thread;
    std::vector<std::shared_ptr<Job>> jobs;
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return state_ == State::Open || state_ == State::Closed; });
        if (state_ == State::Closed) {
            return;
        }
        state_ = State::Closing;
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
    enter(State::Closed, nullptr);
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
