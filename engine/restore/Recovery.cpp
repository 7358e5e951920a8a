#include "engine/restore/Recovery.h"

#include "engine/state/Catalogue.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace krl::engine {
namespace {

class JobEnd {
public:
    JobEnd(PhoneSafe& safe, Restorer& restorer, const Journal& journal, JobTime time)
        : safe_(safe), restorer_(restorer), journal_(journal), time_(time),
          before_(safe.snapshot(journal.job.before)), after_(safe.snapshot(journal.job.after)),
          now_(restorer.look()) {}

    Ending run(Wish wish, const TakeLock& takeLock) {
        const bool mustFinish = wish == Wish::Finish || journal_.mustFinish;
        auto ending = endedAlready(mustFinish);
        const auto lock = ending || !takeLock ? nullptr : takeLock();
        if (lock) {
            lookAgain();
            ending = endedAlready(mustFinish);
        }
        if (!ending) {
            ending = end(mustFinish || (wish == Wish::Either && haveAllCome()));
        }
        close(*ending);
        return *ending;
    }

private:
    std::optional<Ending> endedAlready(bool mustFinish) const {
        if (sameContents(now_, after_)) {
            return Ending::WasDone;
        }
        return !mustFinish && sameContents(now_, before_) ? std::optional(Ending::NothingHappened)
                                                          : std::nullopt;
    }

    /// The job's own lock may have been given back before this one was taken.
    void lookAgain() {
        const Snapshot earlier = std::exchange(now_, restorer_.look());
        if (!sameContents(now_, earlier)) {
            time_ = JobTime::Earlier;
        }
    }

    Ending end(bool finishes) {
        own_.add(before_);
        own_.add(after_);
        return !isExplained() ? Ending::ChangedByOthers : finishes ? finish() : takeBack();
    }

    /// Whether what the phone holds can come from the state before by this job alone.
    bool isExplained() {
        return isCatalogueExplained() && isRestUntouched() &&
               std::all_of(journal_.touched.begin(), journal_.touched.end(),
                           [this](const std::string& name) { return isFileExplained(name); });
    }

    bool isCatalogueExplained() {
        if (now_.catalogue == before_.catalogue || now_.catalogue == after_.catalogue) {
            return true;
        }
        if (!now_.catalogue) {
            // One that cannot be loaded is removed by a job; with all else gone too, the phone was
            // set up anew.
            return time_ == JobTime::Now || !now_.files.empty();
        }
        return !isReadable(*now_.catalogue) &&
               isUnfinished(*now_.catalogue, after_.catalogue, own_.catalogues);
    }

    /// A catalogue that can be read is somebody's whole work, also when it came a moment ago: between
    /// the end of a sync, which gives its lock back, and the look at what came of it.
    bool isReadable(const Content& catalogue) {
        return readCatalogue(safe_.contents().bytes(catalogue.digest)).usable;
    }

    bool isRestUntouched() const {
        return std::all_of(before_.files.begin(), before_.files.end(), [this](const auto& file) {
            const auto now = now_.files.find(file.first);
            return journal_.touched.contains(file.first) ||
                   (now != now_.files.end() && now->second.content == file.second.content);
        });
    }

    bool isFileExplained(const std::string& name) {
        const auto now = now_.files.find(name);
        if (now == now_.files.end() || isTemporary(name) ||
            own_.files.contains(now->second.content.digest)) {
            return true;
        }
        const auto wanted = after_.files.find(name);
        return wanted != after_.files.end() &&
               isUnfinished(now->second.content, wanted->second.content, own_.files);
    }

    /// Whether a content is what is there of one that was to be written. It is ours then.
    bool isUnfinished(const Content& content, const std::optional<Content>& whole,
                      std::set<Digest>& own) {
        // What was written just now and is wrong has been garbled on its way.
        const bool isOurs = time_ == JobTime::Now || (whole && isBeginning(content, *whole));
        if (isOurs) {
            own.insert(content.digest);
        }
        return isOurs;
    }

    bool isBeginning(const Content& content, const Content& whole) {
        return content.size < whole.size &&
               safe_.contents()
                   .bytes(whole.digest)
                   .starts_with(safe_.contents().bytes(content.digest));
    }

    bool haveAllCome() const {
        return std::all_of(after_.files.begin(), after_.files.end(), [this](const auto& file) {
            const auto now = now_.files.find(file.first);
            return now != now_.files.end() && now->second.content == file.second.content;
        });
    }

    Ending finish() {
        try {
            bringTo(after_);
            return Ending::Finished;
        } catch (const PhoneFileFailure&) {
            if (journal_.mustFinish) {
                throw;
            }
        }
        // What cannot be written does not stay half there.
        restorer_.look();
        return takeBack();
    }

    Ending takeBack() {
        bringTo(before_);
        return Ending::TakenBack;
    }

    void bringTo(const Snapshot& target) {
        restorer_.carryOut(restorer_.plan(target, own_), target);
    }

    /// Whatever happens in between, the next look comes to the same end.
    void close(Ending ending) {
        History history = safe_.history();
        switch (ending) {
        case Ending::WasDone:
        case Ending::Finished:
            history.add(journal_);
            break;
        case Ending::ChangedByOthers:
            // What the job had put in the safe is to be had again by an undo.
            if (!journal_.undoes) {
                history.add(journal_);
            }
            history.left.reset();
            break;
        case Ending::NothingHappened:
        case Ending::TakenBack:
            history.left = journal_.job.before;
            break;
        }
        safe_.end(history, indexOf(restorer_.now()));
        safe_.tidy();
    }

    PhoneSafe& safe_;
    Restorer& restorer_;
    const Journal& journal_;
    JobTime time_;
    const Snapshot before_;
    const Snapshot after_;
    Snapshot now_;
    OwnContents own_;
};

} // namespace

Ending endJob(PhoneSafe& safe, Restorer& restorer, const Journal& journal, Wish wish, JobTime time,
              const TakeLock& takeLock) {
    return JobEnd(safe, restorer, journal, time).run(wish, takeLock);
}

std::string endingText(Ending ending, const Job& job) {
    const std::string what =
        fmt::format("the last job on this phone ({}) was broken off",
                    job.what == "mirror" ? "a folder that the window mirrors" : "vesk " + job.what);
    switch (ending) {
    case Ending::NothingHappened:
        return what + " before it had changed anything";
    case Ending::WasDone:
        return what + " after all had been done";
    case Ending::Finished:
        return what + "; it has been finished now";
    case Ending::TakenBack:
        return what + "; the phone has been put back as it was before";
    case Ending::ChangedByOthers:
        return what + ", and others have changed the phone since: it stays as it is; \"vesk undo "
                      "--force\" puts back what it held before";
    }
    return what;
}

} // namespace krl::engine
