#pragma once

namespace vesk {

/// What Ctrl-C (SIGINT, and likewise SIGTERM and SIGHUP) does.
enum class OnInterrupt {
    LeaveAtOnce,      ///< nothing is being written: say so and leave
    FinishStep,       ///< cancel at the next step of a sync; a second one leaves at once
    FinishForcedStep, ///< the same, when an unreadable catalogue has been removed
    FinishSync,       ///< too late to cancel: complete the sync; a second one leaves at once
    FinishPiece,      ///< cancel within a file that is being fetched; a second one leaves at once
    LeaveUnreported,  ///< something may have been written: leave at once, say nothing of it
    EndWatching,      ///< leave at once without a word, since that is how watching ends
};

/// Takes the signals over for the rest of the process and ignores SIGPIPE: a reader that goes away
/// must not end a sync half-way.
void installInterruptHandlers();

/// Sets what the signals do from now on. A signal that was noticed before stays so.
/// @return what they did before
OnInterrupt setOnInterrupt(OnInterrupt reaction);

/// Whether a signal came under a reaction that goes on.
bool interrupted();

/// Sets a reaction for a scope and that of before after it.
class InterruptScope {
public:
    explicit InterruptScope(OnInterrupt reaction) : before_(setOnInterrupt(reaction)) {}

    ~InterruptScope() { setOnInterrupt(before_); }

    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;

private:
    const OnInterrupt before_;
};

/// The same for a scope that may change the phone, and has yet to say so when it is over.
class DeedScope {
public:
    explicit DeedScope(OnInterrupt reaction) : before_(setOnInterrupt(reaction)) {}

    ~DeedScope() {
        setOnInterrupt(before_ == OnInterrupt::LeaveAtOnce ? OnInterrupt::LeaveUnreported
                                                           : before_);
    }

    DeedScope(const DeedScope&) = delete;
    DeedScope& operator=(const DeedScope&) = delete;

private:
    const OnInterrupt before_;
};

} // namespace vesk
