#include "python/core/Job.h"

#include "python/core/Values.h"
#include "python/core/WithoutLock.h"

#include <utility>

namespace krl::python {

namespace py = pybind11;
using engine::Failure;

namespace {

thread_local int callbacks = 0;

const char* stageName(engine::WorkProgress::Stage stage) {
    using Stage = engine::WorkProgress::Stage;
    switch (stage) {
    case Stage::Making:
        return "making";
    case Stage::Starting:
        return "starting";
    case Stage::WaitingForLock:
        return "waiting-for-lock";
    case Stage::Reading:
        return "reading";
    case Stage::Sending:
    case Stage::Paused: // nothing in Python pauses one
        return "sending";
    case Stage::Finishing:
        return "finishing";
    case Stage::PuttingBack:
        return "putting-back";
    }
    return "";
}

} // namespace

bool isHearing() {
    return callbacks > 0;
}

void beginHearing() {
    ++callbacks;
}

void endHearing() {
    --callbacks;
}

Failure cancelled() {
    return {engine::FailureKind::Cancelled, "cancelled; nothing was changed on the phone"};
}

void Job::requireWanted() const {
    if (isCancelled()) {
        throw cancelled();
    }
}

void Job::report(Report report) {
    std::unique_lock lock(mutex_);
    if (*cancelled_) {
        return;
    }
    report_ = std::move(report);
    changed_.notify_all();
    if (isRungFor_) {
        ring_();
    }
    changed_.wait(lock, [this] { return !report_ || *cancelled_; });
    report_.reset();
}

engine::WorkWatch Job::watch() {
    return {.progress =
                [this](const engine::WorkProgress& progress) {
                    report({stageName(progress.stage), progress});
                },
            .isCancelled = cancelled_};
}

void Job::finish(Result result) {
    end(std::move(result));
}

void Job::fail(Failure failure) {
    end(std::move(failure));
}

void Job::end(Outcome outcome) {
    const std::lock_guard lock(mutex_);
    if (outcome_) {
        return; // it was closed
    }
    outcome_ = std::move(outcome);
    changed_.notify_all();
    if (isRungFor_) {
        ring_();
    }
}

bool Job::wait() {
    constexpr std::chrono::milliseconds kMoment{50};
    const WithoutLock without;
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kMoment, [this] { return hasNews(); });
    return outcome_.has_value();
}

void Job::listen() {
    const std::lock_guard lock(mutex_);
    isRungFor_ = true;
    if (hasNews()) {
        ring_();
    }
}

std::optional<Report> Job::unheard() {
    const std::lock_guard lock(mutex_);
    return report_;
}

void Job::heard() {
    const std::lock_guard lock(mutex_);
    report_.reset();
    changed_.notify_all();
}

bool Job::isDone() const {
    const std::lock_guard lock(mutex_);
    return outcome_.has_value();
}

py::tuple Job::outcome() const {
    std::optional<Outcome> outcome;
    {
        const std::lock_guard lock(mutex_);
        outcome = outcome_;
    }
    if (!outcome) {
        throw std::logic_error("the work is not done");
    }
    if (const Failure* const failure = std::get_if<Failure>(&*outcome)) {
        return failed(*failure);
    }
    return succeeded(std::get<Result>(*outcome)());
}

void Job::cancel() {
    {
        const std::lock_guard lock(mutex_);
        *cancelled_ = true;
        changed_.notify_all();
    }
    onCancel_(*this);
}

void Job::waitForEnd() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return outcome_.has_value(); });
}

} // namespace krl::python
