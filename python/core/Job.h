#pragma once

#include "engine/errors/Failure.h"
#include "engine/jobs/WorkProgress.h"

#include <pybind11/pybind11.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>

namespace krl::python {

/// How far a piece of work is.
struct Report {
    std::string stage; ///< "making", "sending" and so on
    engine::WorkProgress progress;
};

/// What work ends with that was cancelled before it changed anything.
engine::Failure cancelled();

/// A piece of work on the phones' thread, and who waits for it in Python. The work has a side that
/// touches nothing of Python; so whoever holds Python's lock may wait for the thread. Callbacks are
/// called by Python itself: a thread that Python ends in the middle of one takes no C++ along.
class Job {
public:
    /// What came of the work, to be made a Python value of by who has Python's lock.
    using Result = std::function<pybind11::object()>;

    /// Whether who waits may leave the work to itself.
    enum class Kind { Reads, Writes };

    /// @param ring       called, by any thread, when there is news for one who does not wait
    /// @param cancelled  called, by any thread, each time it is cancelled
    Job(Kind kind, std::function<void()> ring, std::function<void(Job&)> cancelled)
        : kind_(kind), ring_(std::move(ring)), onCancel_(std::move(cancelled)) {}

    // The work's side.

    /// Hands a report over and waits until it was heard, so that what is cancelled because of it is
    /// cancelled there. At once when nobody listens any more.
    void report(Report report);

    bool isCancelled() const { return *cancelled_; }

    /// @throw Failure when it is cancelled
    void requireWanted() const;

    /// What the engine hears of, and is cancelled by.
    engine::WorkWatch watch();

    // How it has ended. The first one counts.

    void finish(Result result);
    void fail(engine::Failure failure);

    // Python's side. Each is called with its lock.

    /// Waits for a report or the end, for a moment at most: signals are heard in between.
    /// @return whether it is done
    bool wait();

    /// Nobody waits: the reports and the end are rung for. What has come before is rung for now.
    void listen();

    /// The report that has not been heard, if there is one.
    std::optional<Report> unheard();

    /// It has been heard.
    void heard();

    /// Any thread, with or without the lock.
    bool isDone() const;

    /// Of work that is done: its result and None, or None and the failure.
    pybind11::tuple outcome() const;

    /// Reports are not made from now on. Work that only reads, and waits for a phone, is to be
    /// cancelled until it is done: each time one wait is ended.
    void cancel();

    // The hub's.

    Kind kind() const { return kind_; }

    /// Waits for its end. Without Python's lock.
    void waitForEnd();

private:
    using Outcome = std::variant<Result, engine::Failure>;

    void end(Outcome outcome);

    bool hasNews() const { return report_ || outcome_; } // under the lock

    const Kind kind_;
    const std::function<void()> ring_;
    const std::function<void(Job&)> onCancel_;
    const std::shared_ptr<std::atomic<bool>> cancelled_ =
        std::make_shared<std::atomic<bool>>(false);
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool isRungFor_ = false;         ///< under the lock
    std::optional<Report> report_;   ///< under the lock
    std::optional<Outcome> outcome_; ///< under the lock
};

/// Whether this thread is inside of a callback of a job: the phones' thread waits for it.
bool isHearing();

/// A callback begins in this thread.
void beginHearing();

void endHearing();

} // namespace krl::python
