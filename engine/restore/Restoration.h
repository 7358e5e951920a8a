#pragma once

#include "engine/restore/Recovery.h"

#include <string>

namespace krl::engine {

/// A state that a phone is to be put into, as a job of its own.
struct RestorationRequest {
    std::string what; ///< the job's command
    Snapshot target;
    OwnContents own;       ///< what may be replaced
    bool undoes = false;   ///< the last job is taken back by it
    bool isForced = false; ///< everything may be replaced
};

/// Puts a phone into a state that the safe has. What is there before is kept, so that this too can
/// be undone.
class Restoration {
public:
    /// Looks at the phone and works out what there is to do. Changes nothing.
    Restoration(PhoneSafe& safe, Restorer& restorer, RestorationRequest request);

    const RestorePlan& plan() const { return plan_; }

    const Snapshot& now() const { return now_; }

    /// @throw Failure also when something of others is in the way; nothing has been changed then
    void carryOut();

private:
    void requireFree() const;
    void requireRoom() const;
    Snapshot afterwards() const;

    PhoneSafe& safe_;
    Restorer& restorer_;
    const RestorationRequest request_;
    const Snapshot now_;
    RestorePlan plan_;
};

} // namespace krl::engine
