#include "engine/sync/Submit.h"

#include "engine/errors/Failure.h"
#include "engine/errors/Status.h"
#include "engine/sync/SyncRun.h"
#include "engine/values/Text.h"
#include "vesk/terminal/Interrupt.h"
#include "vesk/terminal/ProgressDisplay.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <tuple>
#include <unistd.h>

namespace vesk {
namespace {

/// The store's modes of a status report.
enum Mode : int32_t { kPreparing = 0, kRemoving = 3, kBeforeUploads = 4, kUploading = 5 };

/// What the sync reported, and the answer to it.
class Reports {
public:
    Reports(const Plan& plan, const Output& output) : display_(output) {
        std::copy_if(plan.operations.begin(), plan.operations.end(), std::back_inserter(uploads_),
                     [](const Operation& one) { return one.kind == Operation::Kind::Upload; });
        progress_.filesTotal = uploads_.size();
        progress_.bytesTotal = plan.uploadBytes;
    }

    ProgressDisplay& display() { return display_; }

    /// Files that have arrived whole.
    size_t uploaded() const { return progress_.filesDone; }

    size_t uploadsPlanned() const { return progress_.filesTotal; }

    /// Catalogue entries whose renames were tried.
    size_t entriesRenamed() const { return preparingReports_ > 0 ? preparingReports_ - 1 : 0; }

    const std::string& underWay() const { return progress_.current; }

    /// Files on the phone that were written to.
    std::set<std::string> filesBegun() const {
        std::set<std::string> files;
        for (size_t i = 0; i < uploadsBegun_; ++i) {
            files.insert(uploads_[i].file);
        }
        return files;
    }

    bool reachedRemovals() const { return reachedRemovals_; }

    bool answeredCancel() const { return answeredCancel_; }

    /// Takes a step; whether to go on.
    bool answer(const SyncStep& step) noexcept {
        answeredCancel_ = answeredCancel_ || interrupted();
        try {
            take(step);
        } catch (...) {
            // Progress that cannot be shown is no reason to stop a sync half-way.
        }
        return !answeredCancel_;
    }

private:
    using Clock = std::chrono::steady_clock;

    void take(const SyncStep& step) {
        switch (step.mode) {
        case kPreparing:
            ++preparingReports_;
            display_.stage("Preparing ...");
            break;
        case kBeforeUploads:
            start_ = Clock::now();
            break;
        case kUploading:
            takeUpload(step.status == 1, step.name);
            break;
        case kRemoving:
            reachedRemovals_ = true;
            setOnInterrupt(OnInterrupt::FinishSync);
            display_.stage("Removing, writing the catalogue ...");
            break;
        default:
            break;
        }
    }

    void takeUpload(bool begins, const std::string& name) {
        progress_.elapsedSeconds = std::chrono::duration<double>(Clock::now() - start_).count();
        if (begins) {
            // One that is answered with a cancel is not begun.
            uploadsBegun_ += answeredCancel_ ? 0U : 1U;
            progress_.current = name;
            display_.fileBegins(progress_);
        } else {
            progress_.bytesDone += uploads_.at(progress_.filesDone).bytes;
            ++progress_.filesDone;
            display_.fileEnds(progress_);
        }
    }

    std::vector<Operation> uploads_;
    Progress progress_;
    ProgressDisplay display_;
    Clock::time_point start_ = Clock::now();
    size_t preparingReports_ = 0;
    size_t uploadsBegun_ = 0;
    bool reachedRemovals_ = false;
    bool answeredCancel_ = false;
};

class Submission {
public:
    Submission(Session& session, const PhoneState& before, const PreparedChange& change,
               Output& output)
        : session_(session), before_(before), change_(change), output_(output),
          reports_(change.plan, output) {}

    void run() {
        const InterruptScope scope(OnInterrupt::FinishStep);
        const auto failure = carryOut();
        session_.disconnect();
        reports_.display().clear();
        if (failure) {
            throw failed(*failure);
        }
        if (reports_.answeredCancel() && !reports_.reachedRemovals()) {
            throw cancelled();
        }
        verify();
        if (interrupted()) {
            output_.note("it was too late to cancel: the sync is complete");
        }
    }

private:
    /// @return why it failed
    std::optional<std::string> carryOut() {
        // A phone closes a connection on which nothing was asked for a while, but for files.
        session_.disconnect();
        session_.expectOperations(mostFileOperations());
        begin();
        return runSync(tones_,
                       [this](const SyncStep& step) noexcept { return reports_.answer(step); });
    }

    /// Generating asks for each ringtone that stays, and so does reading the list afterwards; moves
    /// are tried twice.
    size_t mostFileOperations() const {
        constexpr size_t kOthers = 20;
        return 2 * (change_.catalogueEntries + change_.plan.operations.size()) + kOthers;
    }

    /// Takes the sync lock before the sync does: that one goes on without it when it cannot be had.
    void begin() {
        reports_.display().stage("Waiting for the phone's sync lock ...");
        KRTErrorClear();
        if (session_.phone().open()) {
            reports_.display().clear();
            throw session_.readFailure("the phone cannot be opened");
        }
        if (session_.phone().beginSync() != 1) {
            throw notBegun(lastFailureText());
        }
        if (interrupted()) {
            end();
            throw Failure(ExitCode::Cancelled, "cancelled; nothing was changed on the phone");
        }
        if (removesCatalogue()) {
            removeCatalogue();
        }
    }

    /// There is no sync of a list that cannot be loaded.
    void removeCatalogue() {
        const auto lists = tones_->generateChangeLists();
        const auto added =
            cf::adopt(CFDictionaryCreateCopy(nullptr, cf::dictionaryAt(lists.get(), kAddedList)));
        KRTErrorClear();
        if (session_.phone().removeObjectAtPath(cf::string(kCataloguePath).get())) {
            throw notBegun(lastFailureText());
        }
        tones_->rebuildRingtoneListFromOriginal();
        for (const auto& [name, ringtone] : cf::pairs(added.get())) {
            tones_->addRingtone(static_cast<CFMutableDictionaryRef>(const_cast<void*>(ringtone)));
        }
    }

    Failure notBegun(const std::string& reason) {
        end();
        const bool gone = session_.isGone();
        return {
            gone ? ExitCode::PhoneGone : ExitCode::CannotBegin,
            fmt::format("the sync on {} could not begin: {}", before_.facts.label(),
                        gone ? "the phone was pulled out" : reason),
            "Another program may be syncing the phone, or it is going away. Nothing was changed "
            "on it. Close the other program, plug the phone in and try again."};
    }

    /// Gives the sync lock back without a sync.
    void end() {
        session_.phone().endSync();
        session_.phone().close();
        reports_.display().clear();
    }

    bool removesCatalogue() const {
        return change_.plan.count(Operation::Kind::RemoveCatalogue) > 0;
    }

    /// Until the removals have begun.
    std::string stateText() const {
        const std::string done =
            reports_.uploadsPlanned() == 0
                ? "nothing had been removed"
                : fmt::format("{} of {} had been uploaded", reports_.uploaded(),
                              counted(reports_.uploadsPlanned(), "ringtone"));
        return done + (removesCatalogue() ? "; the unreadable catalogue is gone"
                                          : "; the phone's catalogue is the old one");
    }

    Failure failed(const std::string& reason) {
        if (session_.isGone()) {
            return pulledOut();
        }
        const std::string where =
            reports_.underWay().empty() ? "" : fmt::format(" at \"{}\"", reports_.underWay());
        return withState(ExitCode::SyncFailed,
                         fmt::format("the sync of {} failed{}: {}", before_.facts.label(), where,
                                     unreadableSource().value_or(reason)));
    }

    /// Of a file on this computer the library only says that it could not be read.
    std::optional<std::string> unreadableSource() const {
        for (const Operation& operation : change_.plan.operations) {
            if (operation.kind == Operation::Kind::Upload &&
                operation.name == reports_.underWay() &&
                ::access(operation.source.c_str(), R_OK) != 0) {
                return fmt::format("\"{}\" cannot be read: {}", operation.source,
                                   std::strerror(errno));
            }
        }
        return std::nullopt;
    }

    Failure cancelled() {
        if (session_.isGone()) {
            return pulledOut();
        }
        return withState(ExitCode::Cancelled,
                         fmt::format("the sync of {} was cancelled", before_.facts.label()));
    }

    /// Adds what the phone holds now.
    Failure withState(ExitCode code, const std::string& message) {
        std::vector<std::string> details{stateText()};
        try {
            undoRenames();
            describeOldRingtones(details);
        } catch (const Failure& failure) {
            details.push_back(fmt::format("the phone could not be looked at: {}", failure.what()));
        }
        return {code, message,
                "Run the same command again: files that no catalogue lists are deleted or "
                "replaced then.",
                details};
    }

    void describeOldRingtones(std::vector<std::string>& details) {
        const auto now = session_.ringtones(before_.catalogue.entries.size());
        const std::set<std::string> overwritten = reports_.filesBegun();
        size_t intact = 0;
        for (const PhoneRingtone& ringtone : before_.ringtones) {
            if (findRingtone(now, ringtone.name) == nullptr) {
                details.push_back(
                    fmt::format("\"{}\" is not on the phone any more", ringtone.name));
            } else if (overwritten.contains(ringtone.file)) {
                details.push_back(
                    fmt::format("\"{}\", which was to go, has been overwritten by a new "
                                "file of the same name, {}",
                                ringtone.name, ringtone.file));
            } else {
                ++intact;
            }
        }
        if (intact == before_.ringtones.size()) {
            details.push_back(intact == 0 ? "it had no ringtones before and lists none now"
                                          : fmt::format("all {} that it had are still there",
                                                        counted(intact, "ringtone")));
        }
    }

    /// The old catalogue lists the old names: under the new ones the ringtones would be missing,
    /// and deleted by the next sync.
    void undoRenames() {
        const auto names = session_.folderNames().value_or(std::vector<std::string>{});
        std::set<std::string> folder(names.begin(), names.end());
        const auto& operations = change_.plan.operations;
        for (auto operation = operations.rbegin(); operation != operations.rend(); ++operation) {
            const auto& [from, to] = std::tie(operation->file, operation->newFile);
            const bool moved = operation->kind == Operation::Kind::Rename && folder.contains(to) &&
                               !folder.contains(from);
            if (moved && !session_.phone().renameFileAtPath(path(to).get(), path(from).get())) {
                folder.erase(to);
                folder.insert(from);
            }
        }
    }

    static cf::CFRef<CFStringRef> path(const std::string& file) {
        return cf::string(fmt::format("{}/{}", kRingtonesFolder, file));
    }

    Failure pulledOut() {
        std::vector<std::string> details;
        if (reports_.reachedRemovals()) {
            details.emplace_back(
                "all uploads had arrived; whether the new catalogue was written is "
                "not known");
        } else {
            details.push_back(stateText());
            describeMoved(details);
        }
        return {ExitCode::PhoneGone,
                fmt::format("{} was pulled out during the sync", before_.facts.label()),
                "Plug it in again and run the same command again.", details};
    }

    void describeMoved(std::vector<std::string>& details) const {
        if (reports_.entriesRenamed() == 0) {
            return;
        }
        for (const Operation& operation : change_.plan.operations) {
            if (operation.kind == Operation::Kind::Rename) {
                details.push_back(fmt::format("\"{}\" may have moved from {} to {}, where the old "
                                              "catalogue does not find it: keep a copy of it",
                                              operation.name, operation.file, operation.newFile));
            }
        }
    }

    static std::map<std::string, uint64_t>
    namesAndSizes(const std::vector<PhoneRingtone>& ringtones) {
        std::map<std::string, uint64_t> result;
        for (const PhoneRingtone& ringtone : ringtones) {
            result[ringtone.name] = ringtone.size;
        }
        return result;
    }

    /// Over a new connection: what the sync itself reads at its end, when the phone has gone, is an
    /// empty list.
    void verify() {
        std::map<std::string, uint64_t> now;
        try {
            now = namesAndSizes(session_.ringtones(change_.wanted.size()));
        } catch (const Failure& failure) {
            throw failure.code() == ExitCode::PhoneGone ? pulledOut() : unverified(failure);
        }
        if (now != change_.wanted) {
            throw notAsWanted(now);
        }
    }

    Failure unverified(const Failure& failure) const {
        return {ExitCode::NotAsWanted,
                fmt::format("the sync of {} ended, but the phone cannot be looked at: {}",
                            before_.facts.label(), failure.what()),
                "Run \"vesk list\" to see what it holds."};
    }

    Failure notAsWanted(const std::map<std::string, uint64_t>& now) const {
        std::vector<std::string> details;
        for (const auto& [name, size] : change_.wanted) {
            const auto found = now.find(name);
            if (found == now.end()) {
                details.push_back(fmt::format("missing: \"{}\"", name));
            } else if (found->second != size) {
                details.push_back(
                    fmt::format("\"{}\" has {} instead of {} bytes", name, found->second, size));
            }
        }
        for (const auto& [name, size] : now) {
            if (!change_.wanted.contains(name)) {
                details.push_back(fmt::format("still there: \"{}\"", name));
            }
        }
        return {ExitCode::NotAsWanted,
                fmt::format("the sync of {} ended, but the phone does not hold what it should; "
                            "perhaps its catalogue could not be written",
                            before_.facts.label()),
                "Check the free space with \"vesk info\" and run the same command again.", details};
    }

    Session& session_;
    const std::shared_ptr<KRTRingtoneManager> tones_ = session_.tones().shared_from_this();
    const PhoneState& before_;
    const PreparedChange& change_;
    Output& output_;
    Reports reports_;
};

} // namespace

void submit(Session& session, const PhoneState& before, const PreparedChange& change,
            Output& output) {
    Submission(session, before, change, output).run();
}

} // namespace vesk
