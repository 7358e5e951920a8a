#include "python/core/Job.h"

#include "engine/errors/FailureCodes.h"
#include "python/core/Values.h"

#include <utility>

namespace krl::python {

namespace py = pybind11;
using engine::Failure;

namespace {

thread_local int callbacks = 0;

const char* stageName(engine::WorkProgress::Stage stage) {
    using Stage = engine::WorkProgress::Stage;
    switch (stage) {
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

Hearing::Hearing() {
    ++callbacks;
}

Hearing::~Hearing() {
    --callbacks;
}

void raise(const Failure& failure) {
    const auto [number, name] = engine::codeOf(failure.kind());
    const py::object error = py::module_::import("krlvesk._errors")
                                 .attr("_of")(number, name, text(failure.what()),
                                              text(failure.advice()), texts(failure.details()));
    PyErr_SetObject(py::type::handle_of(error).ptr(), error.ptr());
    throw py::error_already_set();
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

py::object Job::run(const py::object& progress, const py::object& cancel) {
    std::optional<py::error_already_set> error;
    for (bool isDone = false; !isDone;) {
        waitForNews();
        isDone = this->isDone();
        const auto report = unheard();
        try {
            if (PyErr_CheckSignals() != 0) {
                throw py::error_already_set();
            }
            if (report && !progress.is_none() && !error) {
                const Hearing hearing;
                progress(valueOf(*report));
            }
            if (!isDone && !cancel.is_none() && cancel.attr("is_set")().cast<bool>()) {
                this->cancel();
            }
        } catch (py::error_already_set& thrown) {
            this->cancel();
            if (!error) {
                error = std::move(thrown);
            }
            if (kind_ == Kind::Reads) {
                break; // nothing is changed by it: it ends by itself
            }
        }
        if (report) {
            heard();
        }
    }
    if (error) {
        noteOutcome(*error);
        throw py::error_already_set(std::move(*error));
    }
    return result();
}

/// For a moment at most: a signal's handler may run in another thread, or between the look for it
/// and this.
void Job::waitForNews() {
    constexpr std::chrono::milliseconds kMoment{50};
    const auto isNews = [this] { return report_ || outcome_; };
    {
        const std::lock_guard lock(mutex_);
        if (isNews()) {
            return; // and a thread that is to end with the program goes on holding Python's lock
        }
    }
    const py::gil_scoped_release released;
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kMoment, isNews);
}

/// Who catches the exception wants to know what has become of the phone, too.
void Job::noteOutcome(const py::error_already_set& error) const {
    const std::lock_guard lock(mutex_);
    if (!outcome_ || !py::hasattr(error.value(), "add_note")) {
        return;
    }
    const Failure* const failure = std::get_if<Failure>(&*outcome_);
    error.value().attr("add_note")(
        failure == nullptr ? py::str("it was too late to cancel: what was asked for is done")
                           : py::reinterpret_borrow<py::str>(text(failure->what())));
}

void Job::listen() {
    const std::lock_guard lock(mutex_);
    isRungFor_ = true;
    if (report_ || outcome_) {
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

py::object Job::result() const {
    std::optional<Outcome> outcome;
    {
        const std::lock_guard lock(mutex_);
        outcome = outcome_;
    }
    if (!outcome) {
        throw std::logic_error("the work is not done");
    }
    if (const Failure* const failure = std::get_if<Failure>(&*outcome)) {
        raise(*failure);
    }
    return std::get<Result>(*outcome)();
}

void Job::cancel() {
    const std::lock_guard lock(mutex_);
    *cancelled_ = true;
    changed_.notify_all();
}

void Job::waitForEnd() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return outcome_.has_value(); });
}

} // namespace krl::python
