#include "vesk/terminal/Interrupt.h"

#include "vesk/invocation/ExitCodes.h"
#include "vesk/terminal/Terminal.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace vesk {
namespace {

// A signal handler reaches nothing but these.
std::atomic<OnInterrupt> reaction{OnInterrupt::LeaveAtOnce};
std::atomic<bool> noticed{false};
// Standard error, also while that is muted.
std::atomic<int> errorOutput{STDERR_FILENO};
// Whether there may be a progress bar, and the "^C" of the keyboard, to be taken off first.
std::atomic<bool> onTerminal{false};

static_assert(std::atomic<OnInterrupt>::is_always_lock_free);
static_assert(std::atomic<bool>::is_always_lock_free);
static_assert(std::atomic<int>::is_always_lock_free);

void put(std::string_view text) {
    [[maybe_unused]] const auto written = write(errorOutput, text.data(), text.size());
}

void say(std::string_view text) {
    if (onTerminal) {
        put("\r\x1b[K");
    }
    put(text);
}

void leave(std::string_view text) {
    say(text);
    _exit(static_cast<int>(ExitCode::Cancelled));
}

void handle(int /*signal*/) {
    const int before = errno; // what was interrupted may be about to look at it
    switch (reaction.load()) {
    case OnInterrupt::LeaveAtOnce:
        leave("vesk: cancelled; nothing was changed on the phone\n");
        break;
    case OnInterrupt::FinishStep:
        if (noticed.exchange(true)) {
            leave("vesk: left at once, in the middle of a sync. The phone's catalogue is the old "
                  "one; files that it does not list may lie in the folder, also ones that were to "
                  "be moved. See with \"vesk list\" what is there, then run the same command "
                  "again.\n");
        }
        say("vesk: cancelling after this step; press Ctrl-C again to leave at once\n");
        break;
    case OnInterrupt::FinishForcedStep:
        if (noticed.exchange(true)) {
            leave(
                "vesk: left at once, in the middle of a sync. The phone's unreadable catalogue is "
                "gone, and there is no new one yet: run the same command again.\n");
        }
        say("vesk: cancelling after this step; press Ctrl-C again to leave at once\n");
        break;
    case OnInterrupt::FinishSync:
        if (noticed.exchange(true)) {
            leave("vesk: left at once, when the removals had begun. The phone's catalogue may be "
                  "incomplete: run \"vesk info\" before anything else.\n");
        }
        say("vesk: too late to cancel, the sync is being completed; pressing Ctrl-C again leaves "
            "at once, perhaps without a catalogue\n");
        break;
    case OnInterrupt::FinishPiece:
        if (noticed.exchange(true)) {
            leave(
                "vesk: left at once; an unfinished file \".vesk-….part\" may lie in the folder\n");
        }
        say("vesk: cancelling; press Ctrl-C again to leave at once\n");
        break;
    case OnInterrupt::LeaveUnreported:
        leave("vesk: left before it was said what has become of the phone's ringtones; \"vesk "
              "list\" shows them\n");
        break;
    case OnInterrupt::EndWatching:
        say("");
        _exit(static_cast<int>(ExitCode::Success));
    }
    errno = before;
}

} // namespace

void installInterruptHandlers() {
    const int duplicate = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    errorOutput = duplicate < 0 ? STDERR_FILENO : duplicate;
    onTerminal = terminalUnderstandsEscapes(stderr);
    struct sigaction action = {};
    action.sa_handler = handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART; // calls to the phone go on undisturbed
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
}

OnInterrupt setOnInterrupt(OnInterrupt newReaction) {
    return reaction.exchange(newReaction);
}

bool interrupted() {
    return noticed;
}

} // namespace vesk
