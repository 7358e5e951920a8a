#include "engine/sync/Attempts.h"

#include "engine/sync/Submission.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

namespace krl::engine {
namespace {

/// Whether it says that the phone's state stands in the way.
bool isAboutState(FailureKind kind) {
    switch (kind) {
    case FailureKind::CatalogueUnreadable:
    case FailureKind::WouldLoseRingtones:
    case FailureKind::NameTaken:
    case FailureKind::NameNotFound:
    case FailureKind::NeedsYes:
    case FailureKind::NoSpace:
        return true;
    default:
        return false;
    }
}

/// Waits for the end of another program's sync.
/// @return whether there was one, or the phone has changed since the state was read
bool hasMoved(OpenPhone& phone, const PhoneState& state) {
    constexpr std::chrono::milliseconds kPause{250};
    constexpr int kMostPauses = 40;
    bool wasBusy = false;
    for (int pause = 0; pause < kMostPauses && phone.isBeingSynced(); ++pause) {
        wasBusy = true;
        std::this_thread::sleep_for(kPause);
    }
    return wasBusy || !isAsRead(phone, state);
}

} // namespace

void attempt(OpenPhone& phone, PhoneState& state, const std::function<void()>& attempt,
             const std::function<void(const std::string& reason)>& again) {
    constexpr int kMost = 5;
    for (int number = 1;; ++number) {
        try {
            state = readEverything(phone);
            attempt();
            return;
        } catch (const ChangedMeanwhile& failure) {
            if (number == kMost) {
                throw;
            }
            again(failure.what());
        } catch (const Failure& failure) {
            if (number == kMost || !isAboutState(failure.kind()) || !hasMoved(phone, state)) {
                throw;
            }
            again(fmt::format("another program is syncing {}", state.facts.label()));
        }
    }
}

} // namespace krl::engine
