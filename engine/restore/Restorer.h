#pragma once

#include "engine/restore/RestorePlan.h"
#include "engine/restore/SnapshotTaking.h"

#include <functional>
#include <string>
#include <vector>

namespace krl::engine {

/// How far a change of the phone is, and whether it is to be broken off.
struct RestoreWatch {
    ByteProgress reading = [](uint64_t, uint64_t) {};
    ByteProgress writing = [](uint64_t, uint64_t) {};
    std::function<bool()> cancels = [] { return false; };
};

/// Brings one phone into states that the safe has.
class Restorer {
public:
    Restorer(PhoneFiles& files, PhoneSafe& safe, RestoreWatch watch)
        : files_(files), safe_(safe), watch_(std::move(watch)) {}

    /// The phone as it is now, in the safe.
    Snapshot look();

    /// How the phone comes from the state that was looked at last to another one.
    RestorePlan plan(const Snapshot& target, const OwnContents& own);

    /// Carries a plan out and looks at the phone again, at the contents of what was written too.
    /// Whatever fails, the next plan takes it up from there.
    /// @throw Failure unless the phone holds the target then; files that could not be removed do no
    ///        harm and are told in leftBehind()
    void carryOut(const RestorePlan& plan, const Snapshot& target);

    const Snapshot& now() const { return now_; }

    const std::vector<std::string>& leftBehind() const { return leftBehind_; }

private:
    void carryOut(const RestoreStep& step);
    void upload(const RestoreStep& step);
    void remove(const std::string& file);
    void makeFolder(const std::string& path);
    void forget(const RestorePlan& plan, const Snapshot& target);
    void requireTarget(const Snapshot& target) const;

    PhoneFiles& files_;
    PhoneSafe& safe_;
    RestoreWatch watch_;
    Snapshot now_;
    std::vector<std::string> leftBehind_;
    uint64_t written_ = 0;
    uint64_t toWrite_ = 0;
};

/// A file of the ringtone folder as the phone calls it.
std::string ringtonePath(const std::string& file);

} // namespace krl::engine
