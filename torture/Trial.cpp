#include "torture/Trial.h"

#include <algorithm>
#include <csignal>

namespace torture {
namespace {

std::map<std::string, std::string> soundsOf(const Files& files) {
    return ringtonesOf(files).sounds;
}

/// Whether a request has met a fault.
bool isFaulty(const virtualphone::LogEntry& entry) {
    return !entry.fault.empty();
}

} // namespace

Trial::Trial(Bench& bench, const Job& job, const Course& course,
             const std::vector<Misfortune>& misfortunes, std::vector<std::string>& said)
    : bench_(bench), job_(job), course_(course), misfortunes_(misfortunes), said_(said) {}

Counts Trial::run() {
    bench_.renew(job_);
    for (const Misfortune& misfortune : misfortunes_) {
        const Files before = bench_.files();
        const Ended ended = meet(misfortune);
        judgeRun(ended, "with the misfortune", /*mayBeKilled=*/true);
        judgeClaims(ended);
        bench_.makeWell();
        countJob(ended, before);
        between_.push_back(bench_.files());
    }
    runPlainly();
    judgeEnd();
    undoAll();
    return counts_;
}

// --- What happens

Ended Trial::meet(const Misfortune& misfortune) {
    bench_.bus().log().clear();
    const std::unique_ptr<Program> vesk = startArmed(misfortune);
    bool isMet = false;
    if (!misfortune.isOnDisk() && !misfortune.isAnswer() && waitForMoment(*vesk)) {
        isMet = happensAt(misfortune.action, *vesk);
    }
    const Ended ended = vesk->wait();
    if (misfortune.isOnDisk()) {
        isMet = wasMetOnDisk(misfortune, ended);
    } else if (misfortune.isAnswer()) {
        isMet = !bench_.bus().log().entries(isFaulty).empty();
    }
    counts_.faults += isMet ? 1U : 0U;
    return ended;
}

/// Starts the job, which is going to meet the misfortune.
std::unique_ptr<Program> Trial::startArmed(const Misfortune& misfortune) {
    std::vector<std::string> arguments = job_.arguments;
    // A phone that is silent is not to take ten seconds each time.
    arguments.insert(arguments.end(), {"--timeout", "0.3"});
    if (misfortune.action == kSwappedChosen) {
        arguments.insert(arguments.end(), {"--udid", bench_.phone().udid()});
    }
    if (misfortune.isOnDisk()) {
        return bench_.start(arguments, misfortune);
    }
    // What happens at a moment has time for it: the answer comes later.
    Misfortune fault = misfortune;
    fault.action = misfortune.isAnswer() ? misfortune.action : "delay:100";
    bench_.faultsOf(fault.place).add(virtualphone::parseFault(fault.text()));
    return bench_.start(arguments);
}

/// @return whether it has come
bool Trial::waitForMoment(const Program& vesk) {
    constexpr std::chrono::milliseconds kTurn{20};
    while (!bench_.bus().log().waitFor(isFaulty, kTurn)) {
        if (vesk.hasEnded()) {
            return false;
        }
    }
    return true;
}

/// @return whether it could
bool Trial::happensAt(const std::string& action, Program& vesk) {
    if (const int number = signalOf(action); number != 0) {
        vesk.signal(number);
    } else if (action == kPhoneFull || action == kPhoneNearlyFull) {
        constexpr uint64_t kLittle = 1500;
        bench_.phone().setFreeBytes(action == kPhoneFull ? 0 : kLittle);
    } else if (action == kLockTaken) {
        return bench_.phone().holdSyncLock();
    } else if (action == kOtherProgram) {
        isAdded_ = bench_.addAsOtherProgram(bench_.addition());
        return isAdded_;
    } else if (action == kOtherVesk || action == kOtherUser) {
        other_ = bench_.startOther(bench_.addition().arguments,
                                   /*hasOwnSafe=*/action == kOtherUser);
    } else if (action == kReplugged) {
        bench_.replug();
    } else {
        bench_.swap();
    }
    return true;
}

bool Trial::wasMetOnDisk(const Misfortune& misfortune, const Ended& ended) const {
    const auto report = bench_.diskReport();
    return ended.signal == SIGKILL || (report && report->calls >= misfortune.number);
}

// --- What came of it

void Trial::judgeRun(const Ended& ended, const char* which, bool mayBeKilled) {
    spoken_ += std::string("--- ") + which + "\n" + ended.output;
    counts_.longestRun = std::max(counts_.longestRun, ended.took);
    if (ended.hung) {
        ++counts_.hangs;
        say(std::string(which) + ": hangs");
    }
    if (ended.signal != 0 && !(mayBeKilled && ended.signal == SIGKILL)) {
        ++counts_.crashes;
        say(std::string(which) + ": ends by signal " + std::to_string(ended.signal));
    }
    judgeOpenDescriptors(which);
}

void Trial::judgeOpenDescriptors(const char* which) {
    const auto report = bench_.diskReport();
    if (report && report->descriptors.size() > course_.descriptors) {
        ++counts_.leaked;
        std::string open;
        for (const std::string& descriptor : report->descriptors) {
            open += " " + descriptor;
        }
        say(std::string(which) + ": leaves more descriptors open than usual:" + open);
    }
    if (!other_ && !bench_.bus().waitForConnections(0)) {
        ++counts_.leaked;
        say(std::string(which) + ": has ended, and its connections have not");
    }
}

void Trial::judgeClaims(const Ended& first) {
    bool otherClaims = isAdded_;
    if (other_) {
        const Ended ended = std::exchange(other_, nullptr)->wait();
        otherClaims = ended.claimsSuccess();
        isAdded_ = true;
        judgeRun(ended, "the other vesk");
    }
    if (first.claimsSuccess() && !isWantedNow() && !isAllDoneOnOther()) {
        ++counts_.falseSuccess;
        say("success was claimed");
    }
    if (otherClaims && job_.others == Job::Others::Stay &&
        !soundsOf(bench_.files()).contains(bench_.addition().name)) {
        ++counts_.falseSuccess;
        say("what somebody else has added is not there");
    }
    judgeOtherPhone(first.claimsSuccess());
}

/// What somebody else has added counts neither way.
bool Trial::isWantedNow() const {
    Ringtones now = ringtonesOf(bench_.files());
    now.sounds.erase(bench_.addition().name);
    return now.isReadable && now.sounds == job_.wanted;
}

/// When vesk was not told which phone is meant, the one that came in time may be taken for it.
bool Trial::isAllDoneOnOther() const {
    const auto files = bench_.otherFiles();
    return files && firstAction() == kSwapped && soundsOf(*files) == job_.wanted;
}

void Trial::judgeOtherPhone(bool claimsSuccess) {
    const auto files = bench_.otherFiles();
    if (files && *files != bench_.before() && !(claimsSuccess && isAllDoneOnOther())) {
        ++counts_.foreign;
        say("the other phone was touched");
    }
}

Ended Trial::runVesk(const std::vector<std::string>& arguments, const char* which) {
    const Ended ended = bench_.run(arguments);
    judgeRun(ended, which);
    return ended;
}

/// A run that has done something is a job to be undone. Restoring is one each time, also what has been
/// finished before it and what is there already.
void Trial::countJob(const Ended& ended, const Files& before) {
    const bool hasDone = ended.claimsSuccess() && bench_.files() != before;
    jobsDone_ += hasDone || job_.name == "restore" ? 1U : 0U;
}

void Trial::runPlainly() {
    const Files before = bench_.files();
    countJob(runVesk(job_.arguments, "plain"), before);
    const Addition& addition = bench_.addition();
    if (isAdded_ && job_.others == Job::Others::Stay &&
        !soundsOf(bench_.files()).contains(addition.name)) {
        judgeRun(bench_.startOther(addition.arguments, firstAction() == kOtherUser)->wait(),
                 "the other, plain");
    }
}

void Trial::judgeEnd() {
    const Files files = bench_.files();
    const Ringtones now = ringtonesOf(files);
    auto wanted = job_.wanted;
    if (isAdded_ && job_.others == Job::Others::Stay) {
        wanted[bench_.addition().name] = bench_.addition().sound;
    }
    for (const auto& [name, sound] : wanted) {
        judgeRingtone(name, sound, now);
    }
    for (const std::string& file : now.unlisted) {
        ++counts_.unlisted;
        say("unlisted " + file);
    }
    if (!now.isReadable || now.sounds != wanted) {
        ++counts_.notFinished;
        say(now.isReadable ? "not what was wanted" : "unreadable catalogue");
    }
    for (const auto& [name, bytes] : bench_.before()) {
        const auto found = files.find(name);
        if (name.starts_with("DCIM") && (found == files.end() || found->second != bytes)) {
            ++counts_.foreign;
            say("touched " + name);
        }
    }
}

void Trial::judgeRingtone(const std::string& name, const std::string& sound, const Ringtones& now) {
    const auto found = now.sounds.find(name);
    if (found == now.sounds.end() || found->second.empty()) {
        ++counts_.lost;
        say("lost " + name);
    } else if (found->second != sound) {
        ++counts_.overwritten;
        say("another sound for " + name);
    }
}

// --- The way back

void Trial::undoAll() {
    if (firstAction() == kOtherUser) {
        undoLastAddition();
    } else if (firstAction() == kOtherProgram && isAdded_) {
        undoBesideOtherProgram();
    } else {
        constexpr size_t kMostJobs = 5;
        undoUntilBefore(firstAction() == kOtherVesk ? kMostJobs : std::max(jobsDone_, size_t{1}));
    }
}

/// What two people have done one after the other is not for one of them to undo; what the last of
/// them does now is.
void Trial::undoLastAddition() {
    const Files wanted = bench_.files();
    if (runVesk(bench_.lastAddition().arguments, "the last addition").code != 0) {
        ++counts_.notFinished;
        say("nothing can be added any more");
    }
    runVesk({"undo"}, "undo");
    judgeUndone(wanted);
}

/// Undo either leaves the phone as it is or takes the job back; what the other program has put there
/// is there afterwards.
void Trial::undoBesideOtherProgram() {
    const Addition& addition = bench_.addition();
    const Files before = bench_.files();
    const Ended undo = runVesk({"undo"}, "undo");
    const Files after = bench_.files();
    auto takenBack = soundsOf(bench_.before());
    takenBack[addition.name] = addition.sound;
    const Ringtones now = ringtonesOf(after);
    judgeRingtone(addition.name, addition.sound, now);
    const bool wasThere = now.sounds == takenBack ||
                          std::any_of(between_.begin(), between_.end(), [&](const Files& files) {
                              return now.sounds == soundsOf(files);
                          });
    const bool isRight = undo.code != 0 ? after == before : now.isReadable && wasThere;
    if (!isRight) {
        ++counts_.notUndone;
        say("undo leaves neither what was there nor what had been there");
    }
}

/// One undo for each job that was done, and no more.
void Trial::undoUntilBefore(size_t jobs) {
    for (size_t i = 0; i < jobs && (i == 0 || bench_.files() != bench_.before()); ++i) {
        runVesk({"undo"}, "undo");
    }
    judgeUndone(bench_.before());
}

void Trial::judgeUndone(const Files& wanted) {
    const Files after = bench_.files();
    if (after == wanted) {
        return;
    }
    ++counts_.notUndone;
    std::string which;
    for (const auto& [name, bytes] : wanted) {
        const auto found = after.find(name);
        which += found == after.end()     ? " missing: " + name
                 : found->second != bytes ? " other: " + name
                                          : "";
    }
    for (const auto& [name, bytes] : after) {
        which += wanted.contains(name) ? "" : " more: " + name;
    }
    say("undo leaves" + which);
}

void Trial::say(const std::string& what) {
    said_.push_back(bench_.firmware() + " " + job_.name + " " + textOf(misfortunes_) + ": " + what +
                    "\n" + spoken_);
}

} // namespace torture
