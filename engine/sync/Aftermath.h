#pragma once

#include "engine/errors/Failure.h"
#include "engine/plan/Change.h"
#include "engine/restore/Recovery.h"
#include "engine/sync/SyncReports.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace krl::engine {

/// What a sync that did not go as planned has left on the phone: puts back what can be put back,
/// and says the rest. A cancelled or failed sync leaves the old catalogue; files that had moved are
/// moved back where the phone lets us, so that the old catalogue finds them.
class Aftermath {
public:
    Aftermath(OpenPhone& phone, const PhoneState& before, const PreparedChange& change,
              const SyncReports& reports)
        : phone_(phone), before_(before), change_(change), reports_(reports) {}

    /// The safe has put the phone in order, or the next job will: nothing is moved back here then.
    /// @param ending  how; none when it could not be done yet
    void leaveToSafe(std::optional<Ending> ending);

    Failure failed(const std::string& reason);
    Failure cancelled();

    /// The guard has stopped the sync, before or after it had changed anything.
    Failure stopped(const std::string& reason, bool hasChanged);

    Failure pulledOut() const;

    /// The phone holds these names and sizes instead of what was wanted.
    Failure notAsWanted(const std::map<std::string, uint64_t>& now,
                        bool catalogueIsUnreadable) const;

    /// The phone could not be looked at after the sync.
    Failure unverified(const Failure& failure) const;

private:
    std::string stateText() const;
    std::optional<std::string> safeText() const;
    std::string advice() const;
    std::optional<std::string> unreadableSource() const;
    Failure withState(FailureKind kind, const std::string& sentence);
    void describeOldRingtones(std::vector<std::string>& details);
    void describeMoved(std::vector<std::string>& details) const;
    void undoRenames();

    OpenPhone& phone_;
    const PhoneState& before_;
    const PreparedChange& change_;
    const SyncReports& reports_;
    bool isLeftToSafe_ = false;
    std::optional<Ending> ending_;
};

} // namespace krl::engine
