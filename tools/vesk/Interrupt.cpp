#include "Interrupt.h"

#include "ExitCodes.h"

#include <atomic>
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
std::atomic<int> terminal{STDERR_FILENO};

static_assert(std::atomic<OnInterrupt>::is_always_lock_free);
static_assert(std::atomic<bool>::is_always_lock_free);
static_assert(std::atomic<int>::is_always_lock_free);

void say(std::string_view text) {
    [[maybe_unused]] const auto written = write(terminal, text.data(), text.size());
}

void leave(std::string_view text) {
    say(text);
    _exit(static_cast<int>(ExitCode::Cancelled));
}

void handle(int /*signal*/) {
    switch (reaction.load()) {
    case OnInterrupt::LeaveAtOnce:
        leave("\nvesk: cancelled; nothing was changed on the phone\n");
        break;
    case OnInterrupt::FinishStep:
        if (noticed.exchange(true)) {
            leave(
                "\nvesk: left at once, in the middle of a sync. The phone may hold files that its "
                "catalogue does not list; run the same command again to put that right.\n");
        }
        say("\nvesk: cancelling after this step; press Ctrl-C again to leave at once\n");
        break;
    case OnInterrupt::EndWatching:
        noticed = true;
        break;
    }
}

} // namespace

void installInterruptHandlers() {
    const int duplicate = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    terminal = duplicate < 0 ? STDERR_FILENO : duplicate;
    struct sigaction action = {};
    action.sa_handler = handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART; // calls to the phone go on undisturbed
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
}

void setOnInterrupt(OnInterrupt newReaction) {
    reaction = newReaction;
}

bool interrupted() {
    return noticed;
}

} // namespace vesk
