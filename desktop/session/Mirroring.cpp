#include "desktop/session/Mirroring.h"

#include <utility>

namespace krl::desktop {
namespace {

/// The last job when it was taken back, or took others back; empty when it is neither.
std::string takenBackJob(const std::vector<PastJob>& history) {
    if (history.empty()) {
        return {};
    }
    const PastJob& last = history.front();
    const bool isTakenBack = last.isUndone || last.what == "undo" || last.what == "restore";
    return isTakenBack ? std::to_string(last.time) + " " + last.before.hex() : std::string();
}

void remember(const audio::Wish& wish, Mirror& mirror) {
    std::erase(mirror.wishes, wish);
    mirror.wishes.push_back(wish);
    if (mirror.wishes.size() > Mirror::kMostWishes) {
        mirror.wishes.erase(mirror.wishes.begin());
    }
}

} // namespace

Mirroring::Mirroring(Mailbox& mailbox, PreferenceDesk& preferences)
    : preferences_(preferences), desk_(mailbox) {
    desk_.onChanged = [this](const std::string& udid) { makeDue(udid); };
    desk_.onNotWatched = [this](const std::string& udid, const engine::Failure& /*failure*/) {
        if (const Mirror* const mirror = find(udid)) {
            onNotWatched(mirror->phone);
        }
    };
}

const Mirror* Mirroring::find(const std::string& udid) const {
    const auto& mirrors = preferences_.now().mirrors;
    const auto found = mirrors.find(udid);
    return found == mirrors.end() ? nullptr : &found->second;
}

const Mirroring::Run& Mirroring::run(const std::string& udid) const {
    static const Run none;
    const auto found = runs_.find(udid);
    return found == runs_.end() ? none : found->second;
}

void Mirroring::begin() {
    for (const auto& [udid, mirror] : preferences_.now().mirrors) {
        desk_.watch(udid, mirror.folder);
        runs_[udid].isDue = true;
    }
    onChanged();
}

void Mirroring::choose(const std::string& udid, const std::string& phone,
                       const std::filesystem::path& folder, const std::vector<PastJob>& history) {
    set(udid, {.folder = folder, .phone = phone, .passedOver = takenBackJob(history)});
}

std::function<void()> Mirroring::stop(const std::string& udid) {
    Preferences preferences = preferences_.now();
    const auto stopped = preferences.mirrors.extract(udid);
    preferences_.change(preferences);
    desk_.endWatch(udid);
    const bool isAtWork = run(udid).isAtWork;
    runs_[udid] = {.isAtWork = isAtWork};
    onChanged();
    if (stopped.empty()) {
        return [] {};
    }
    return [this, udid, mirror = stopped.mapped()] { set(udid, mirror); };
}

void Mirroring::set(const std::string& udid, const Mirror& mirror) {
    Preferences preferences = preferences_.now();
    preferences.mirrors[udid] = mirror;
    preferences_.change(preferences);
    desk_.watch(udid, mirror.folder);
    runs_[udid] = {.isAtWork = run(udid).isAtWork};
    makeDue(udid);
}

void Mirroring::change(const std::string& udid,
                       const std::function<void(Mirror& mirror)>& function) {
    Preferences preferences = preferences_.now();
    const auto found = preferences.mirrors.find(udid);
    if (found != preferences.mirrors.end()) {
        function(found->second);
        preferences_.change(preferences);
        onChanged();
    }
}

void Mirroring::pause(const std::string& udid) {
    change(udid, [](Mirror& mirror) { mirror.isPaused = true; });
}

void Mirroring::resume(const std::string& udid, const std::vector<PastJob>& history) {
    change(udid, [&](Mirror& mirror) {
        mirror.isPaused = false;
        mirror.passedOver = takenBackJob(history);
    });
    makeDue(udid);
}

void Mirroring::makeDue(const std::string& udid) {
    if (find(udid) == nullptr) {
        return;
    }
    Run& due = runs_[udid];
    due.isDue = true;
    due.question.reset();
    due.failure.reset();
    onChanged();
}

void Mirroring::heed(const std::string& udid, const std::vector<PastJob>& history) {
    const Mirror* const mirror = find(udid);
    const std::string job = takenBackJob(history);
    if (mirror != nullptr && !mirror->isPaused && !job.empty() && job != mirror->passedOver) {
        pause(udid);
    }
}

void Mirroring::agree(const std::string& udid) {
    Run& asked = runs_[udid];
    if (!asked.question) {
        return;
    }
    asked.agreed = asked.question->losses;
    change(udid, [](Mirror& mirror) { mirror.isAgreed = true; });
    makeDue(udid);
}

void Mirroring::prepare(const std::string& udid, const PhoneReading& phone, const WorkWatch& watch,
                        Prepared answer) {
    Run& begun = runs_[udid];
    begun.isDue = false;
    begun.isAtWork = true;
    begun.question.reset();
    begun.failure.reset();
    begun.unusable.clear();
    const audio::Wish wish = preferences_.now().wish();
    // Also when it is broken off there may be ringtones by it.
    change(udid, [&](Mirror& mirror) { remember(wish, mirror); });
    const Mirror& mirror = *find(udid);
    auto songs = std::make_shared<MirrorSongs>(mirror.folder, wish, mirror.wishes);
    desk_.prepare(songs, phone, watch,
                  [this, udid, songs, answer = std::move(answer)](const auto& prepared) {
                      runs_[udid].unusable = songs->unusable();
                      answer(prepared);
                  });
}

MirrorTerms Mirroring::terms(const std::string& udid) const {
    const Mirror* const mirror = find(udid);
    return mirror == nullptr ? MirrorTerms{}
                             : MirrorTerms{mirror->isAgreed, mirror->held, run(udid).agreed};
}

void Mirroring::ended(const std::string& udid, const MirrorDone& done) {
    Run& run = runs_[udid];
    run.isAtWork = false;
    run.agreed.clear();
    change(udid, [&](Mirror& mirror) { mirror.held = done.held; });
}

void Mirroring::ended(const std::string& udid, const MirrorPlan& question) {
    Run& run = runs_[udid];
    run.isAtWork = false;
    if (!run.isDue) { // nothing has changed since
        run.question = question;
    }
}

void Mirroring::ended(const std::string& udid, const engine::Failure& failure) {
    Run& run = runs_[udid];
    run.isAtWork = false;
    if (!run.isDue) {
        run.failure = failure;
    }
}

} // namespace krl::desktop
