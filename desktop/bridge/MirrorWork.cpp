#include "desktop/bridge/MirrorWork.h"

#include "audio/songs/FolderSync.h"
#include "audio/songs/SongFolder.h"
#include "engine/change/ChangeJob.h"
#include "engine/files/BeingWritten.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace krl::desktop {

namespace fs = std::filesystem;
using namespace engine;

namespace {

/// Tells a ringtone from another one of its name.
std::string identityOf(const PhoneRingtone& ringtone) {
    return ringtone.source.empty() ? fmt::format("{} bytes", ringtone.size) : ringtone.source;
}

/// The same of one that goes to the phone.
std::string identityOf(const LocalRingtone& ringtone) {
    PhoneRingtone there;
    there.size = ringtone.size;
    there.source = ringtone.source ? sourceText(*ringtone.source, ringtone.size) : std::string();
    return identityOf(there);
}

/// The person has to be asked.
class Question : public std::exception {
public:
    explicit Question(MirrorPlan plan) : plan_(std::move(plan)) {}

    const MirrorPlan& plan() const { return plan_; }

    const char* what() const noexcept override { return "the person has to be asked"; }

private:
    MirrorPlan plan_;
};

/// Lets a run go on as far as the person knows of it.
class Notes : public ChangeNotes {
public:
    Notes(const WorkWatch& watch, const MirrorTerms& terms) : ChangeNotes(watch), terms_(terms) {}

    void wants(audio::SongIntake::All all) { all_ = std::move(all); }

    const HeldRingtones& held() const { return held_; }

    void planned(const PlannedChange& planned) override {
        if (!planned.change.plan.changesAnything) {
            return;
        }
        MirrorPlan plan = planOf(planned);
        if (mustAsk(plan, terms_)) {
            throw Question(std::move(plan));
        }
    }

    void done(const PlannedChange& done) override {
        ChangeNotes::done(done);
        HeldRingtones there;
        for (const PhoneRingtone& ringtone : done.before.ringtones) {
            if (!done.change.removed.contains(ringtone.name)) {
                there.emplace(ringtone.name, identityOf(ringtone));
            }
        }
        held_.clear();
        // What no song is for any more may be there because one could not be used.
        std::set_intersection(there.begin(), there.end(), terms_.held.begin(), terms_.held.end(),
                              std::inserter(held_, held_.end()));
        for (const LocalRingtone& wanted : all_.ringtones) {
            const auto found = there.find(wanted.name);
            held_[wanted.name] = found != there.end() ? found->second : identityOf(wanted);
        }
    }

private:
    static MirrorPlan planOf(const PlannedChange& planned) {
        const PreparedChange& change = planned.change;
        MirrorPlan plan;
        std::set_difference(change.added.begin(), change.added.end(), change.removed.begin(),
                            change.removed.end(), std::back_inserter(plan.added));
        for (const PhoneRingtone& ringtone : planned.before.ringtones) {
            if (change.removed.contains(ringtone.name)) {
                plan.losses.insert(
                    {ringtone.name, identityOf(ringtone), change.added.contains(ringtone.name)});
            }
        }
        const std::set<std::string> strays(change.plan.strays.begin(), change.plan.strays.end());
        for (const FolderFile& file : planned.before.folder) {
            if (strays.contains(file.name) && file.size > 0 && isSupportedType(typeOf(file.name))) {
                plan.losses.insert({file.name, fmt::format("a file of {} bytes", file.size)});
            }
        }
        return plan;
    }

    const MirrorTerms& terms_;
    audio::SongIntake::All all_;
    HeldRingtones held_;
};

} // namespace

MirrorSongs::MirrorSongs(fs::path folder, const audio::Wish& wish, std::vector<audio::Wish> earlier)
    : folder_(std::move(folder)),
      intake_({.wish = wish, .earlier = std::move(earlier)}, audio::NameSource::Tags, *this) {}

void MirrorSongs::prepare(const PhoneReading& phone, const WorkWatch& watch) {
    watch_ = &watch;
    const auto found = audio::songsIn(folder_, audio::SongTypes::All);
    isEmpty_ = found.songs.empty();
    try {
        read(found.songs);
        PhoneState state;
        state.facts = phone.facts;
        state.ringtones = phone.ringtones;
        intake_.makeBeforehand(state);
    } catch (const Failure& failure) {
        if (found.songs.size() != 1 || failure.kind() == FailureKind::Cancelled) {
            throw;
        }
        aloneFailed_ = found.songs.front().string();
        failed(found.songs.front(), failure);
    }
    watch_ = nullptr;
}

void MirrorSongs::read(const std::vector<fs::path>& songs) {
    std::vector<audio::SongIntake::Given> given;
    std::vector<fs::path> unfinished;
    for (const fs::path& song : songs) {
        if (isBeingWritten(song)) {
            unfinished.push_back(song);
        } else {
            given.push_back({song});
        }
    }
    intake_.read(given);
    for (const fs::path& song : unfinished) {
        intake_.refuse(song, Failure(FailureKind::UnreadableFile,
                                     fmt::format("\"{}\" is still being written", song.string())));
    }
}

void MirrorSongs::failed(const fs::path& song, const Failure& failure) {
    unusable_.push_back({song, failure.what()});
}

void MirrorSongs::makes(size_t done, size_t total) {
    if (watch_ == nullptr) {
        return; // all is made by now
    }
    watch_->progress(
        {.stage = WorkProgress::Stage::Making, .filesDone = done, .filesTotal = total});
    if (*watch_->isCancelled) {
        throw Failure(FailureKind::Cancelled, "cancelled; nothing was changed on the phone");
    }
}

MirrorOutcome mirrorPhone(const std::string& udid, MirrorSongs& songs, const MirrorTerms& terms,
                          std::optional<size_t> keptJobs, const WorkWatch& watch) {
    OpenPhone phone({.udid = udid});
    Notes notes(watch, terms);
    ChangeJob job(phone, {.keptJobs = keptJobs}, kMirrorJob, notes);
    try {
        job.run([&](const PhoneState& state) {
            // An empty folder is asked about as a plan.
            notes.wants(audio::makeHoldFolder(
                phone, state,
                {.songs = songs.intake(), .isEmpty = songs.isEmpty(), .isConsented = true}));
        });
    } catch (const Question& question) {
        return question.plan();
    }
    return MirrorDone{notes.result(), notes.held()};
}

} // namespace krl::desktop
