#pragma once

#include "engine/restore/Restoration.h"
#include "engine/restore/RingtoneChanges.h"
#include "engine/state/OpenPhone.h"

#include <functional>
#include <optional>

namespace krl::engine {

/// A phone, its safe, and what moves between the two. A failure says so when the phone was pulled
/// out.
class SafePhone {
public:
    /// Takes the phone's safe, for itself alone as long as it lives.
    /// @param waits  is told before the sync lock is waited for
    SafePhone(
        OpenPhone& phone, RestoreWatch watch, std::function<void()> waits = [] {});

    const PhoneFacts& facts() const { return facts_; }

    PhoneSafe& safe() { return safe_; }

    /// The phone as it is now, in the safe. Changes nothing on the phone.
    Snapshot look();

    /// Ends a job that was broken off earlier, under the sync lock.
    Ending end(const Journal& journal, Wish wish);

    /// What comes of a restoration.
    struct Restored {
        RestorePlan plan;
        RingtoneChanges changes;
    };

    /// Works a restoration out. Changes nothing on the phone.
    Restored plan(const RestorationRequest& request);

    /// Carries a restoration out, under the sync lock.
    Restored restore(const RestorationRequest& request);

private:
    Restored restored(const RestorationRequest& request, const Restoration& restoration);

    /// Has something done over a connection of its own.
    void withRestorer(const std::function<void(Restorer&)>& action);
    void underLock(const std::function<void(Restorer&)>& action);

    OpenPhone& phone_;
    const PhoneFacts facts_;
    PhoneSafe safe_;
    const RestoreWatch watch_;
    const std::function<void()> waits_;
};

/// Takes the last job back that is not undone.
/// @return none when there is none
std::optional<RestorationRequest> undoingLast(PhoneSafe& safe);

/// What to say then.
Failure nothingToUndo(const PhoneFacts& facts);

} // namespace krl::engine
