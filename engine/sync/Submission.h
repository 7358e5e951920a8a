#pragma once

#include "engine/plan/Change.h"
#include "engine/restore/SafeKeeping.h"
#include "engine/sync/SyncListener.h"

namespace krl::engine {

/// The phone was not as it was planned with once the sync lock was had: nothing was changed, and
/// all can be read and planned anew.
class ChangedMeanwhile : public Failure {
public:
    explicit ChangedMeanwhile(const std::string& label)
        : Failure(FailureKind::CannotBegin, label + " was changed by another program meanwhile",
                  "Nothing was changed on the phone. Close the other program and try again.") {}
};

/// Carries a prepared change to the phone under its sync lock, and looks at the phone afterwards:
/// the library does not report a catalogue that could not be written.
/// @param keeping  keeps what could be lost, and puts right what went wrong; null: nobody does
/// @throw ChangedMeanwhile when another program was quicker
/// @throw Failure unless the phone holds exactly what was wanted; it says what is there instead
void submit(OpenPhone& phone, const PhoneState& before, const PreparedChange& change,
            SyncListener& listener, SafeKeeping* keeping);

} // namespace krl::engine
