#pragma once

#include "engine/phones/PhoneThread.h"
#include "python/core/Job.h"

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace krl::python {

/// What makes a descriptor readable, from any thread. Jobs keep it, and not the hub: that must not
/// end on its own thread.
class Bell {
public:
    Bell();
    ~Bell();
    Bell(const Bell&) = delete;
    Bell& operator=(const Bell&) = delete;

    int descriptor() const { return event_; }

    void ring();
    void take();

private:
    const int event_; ///< an eventfd
};

/// The phones' thread with one descriptor for all that comes from it. One at a time. In a process that
/// is forked off it is closed.
class Hub : public std::enable_shared_from_this<Hub> {
public:
    /// With Python's lock, which is given up meanwhile.
    /// @throw Failure when there is no device layer or no mux daemon
    /// @throw std::runtime_error when there is one already, here or in a process that this one was
    ///                           forked off
    static std::shared_ptr<Hub> open();

    ~Hub();
    Hub(const Hub&) = delete;
    Hub& operator=(const Hub&) = delete;

    /// Readable while there is news of phones, or of jobs that are rung for. Nothing is to be read
    /// from it.
    /// @throw pybind11's value error when closed, as each of these
    int descriptor() const;

    std::vector<engine::DeviceNews::Item> takeNews();

    /// Takes the bell's ringing: all jobs that are rung for are to be looked at.
    void takeBell();

    /// Makes the descriptor readable.
    void ring();

    /// Has work done.
    /// @param work  called on the phones' thread, without Python's lock
    /// @return who waits for it: when the last reference goes, the work is cancelled
    std::shared_ptr<Job> start(Job::Kind kind, std::function<Job::Result(Job&)> work);

    /// Whether it is being closed, or was.
    bool isClosed() const;

    /// Cancels all work, waits for the end of what writes to a phone, and ends the thread. Without
    /// Python's lock, any number of times, by any thread: each waits until that is over.
    void close();

    /// The same for the one that there is, when the program ends. With Python's lock.
    static void closeAtExit();

private:
    enum class State { Opening, Open, Closing, Closed };

    Hub();

    void begin();
    void enter(State state, std::unique_ptr<engine::PhoneThread> thread);
    bool hasEnded() const;
    bool isOfThisProcess() const;
    std::unique_lock<std::mutex> lockOpen() const;
    bool begins(const std::shared_ptr<Job>& job);
    void endWaitsOf(Job& job);
    std::vector<std::shared_ptr<Job>> jobsUnderWay() const;

    const std::shared_ptr<Bell> bell_;
    const int descriptor_; ///< an epoll of the bell's and the thread's
    const pid_t owner_;    ///< a fork has neither the thread nor, for sure, the lock
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    State state_ = State::Opening;                ///< under the lock
    std::unique_ptr<engine::PhoneThread> thread_; ///< under the lock; there while open
    std::vector<std::weak_ptr<Job>> jobs_;        ///< under the lock
    std::shared_ptr<Job> running_;                ///< under the lock
};

} // namespace krl::python
