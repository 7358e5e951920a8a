#include "python/core/Changes.h"

#include "audio/songs/FolderSync.h"
#include "engine/change/NameRefusals.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace krl::python {

namespace fs = std::filesystem;
using engine::Failure;
using engine::FailureKind;
using engine::LocalRingtone;
using engine::OpenPhone;
using engine::Others;
using engine::PhoneRingtone;
using engine::PhoneState;

/// The songs of a change, and what becomes of them.
class ChangeOfPhone::Songs : public audio::SongListener {
public:
    explicit Songs(const WantedChange& wanted) : intake_(wanted.recipe, wanted.nameSource, *this) {}

    audio::SongIntake& intake() { return intake_; }

    /// Who waits, for as long as there is work.
    void hearOf(Job& job) { job_ = &job; }

    /// The next account of them begins.
    void begin() { used_.clear(); }

    const std::vector<UsedSong>& used() const { return used_; }

    const std::vector<UnusableSong>& unusable() const { return unusable_; }

    const std::vector<std::string>& unreadableTags() const { return unreadableTags_; }

    /// @throw Failure when several were given and none can be used
    void requireOne() const {
        if (unusable_.empty() || !intake_.isEmpty()) {
            return;
        }
        std::vector<std::string> details;
        for (const auto& [path, failure] : unusable_) {
            details.emplace_back(failure.what());
        }
        throw Failure(unusable_.front().failure.kind(), "none of the songs can be used",
                      unusable_.front().failure.advice(), details);
    }

    void failed(const fs::path& song, const Failure& failure) override {
        unusable_.push_back({song, failure});
    }

    void hasUnreadableTags(const std::vector<std::string>& files) override {
        unreadableTags_ = files;
    }

    void makes(size_t done, size_t total) override {
        job_->report({"making", {.filesDone = done, .filesTotal = total}});
        job_->requireWanted();
    }

    void made(const audio::WantedRingtone& /*wanted*/,
              const audio::SongOutcome& /*outcome*/) override {}

    void goes(const audio::WantedRingtone& wanted, bool isHeld) override {
        used_.push_back({wanted.song->path, wanted.ringtone.name, isHeld, wanted.isPrepared});
    }

private:
    audio::SongIntake intake_;
    Job* job_ = nullptr;
    std::vector<UsedSong> used_;
    std::vector<UnusableSong> unusable_;
    std::vector<std::string> unreadableTags_;
};

/// Holds a change to what was expected of it.
class ChangeOfPhone::Notes : public engine::ChangeNotes {
public:
    Notes(const engine::WorkWatch& watch,
          const std::optional<std::vector<engine::Operation>>& expected)
        : ChangeNotes(watch), expected_(expected) {}

    Planned& found() { return planned_; }

    void planned(const engine::PlannedChange& planned) override {
        const engine::PreparedChange& change = planned.change;
        if (expected_ && change.plan.operations != *expected_) {
            throw Failure(FailureKind::ChangedByOthers,
                          fmt::format("{} is not as it was when this was planned",
                                      planned.before.facts.label()),
                          "Plan it anew. Nothing was changed on the phone.");
        }
        note(planned);
    }

    void done(const engine::PlannedChange& done) override {
        ChangeNotes::done(done);
        note(done);
    }

private:
    void note(const engine::PlannedChange& planned) {
        const engine::PreparedChange& change = planned.change;
        planned_.facts = planned.before.facts;
        planned_.added.assign(change.added.begin(), change.added.end());
        planned_.removed.assign(change.removed.begin(), change.removed.end());
        planned_.renamed = change.renamed;
        planned_.plan = change.plan;
        planned_.putRight.clear();
        if (planned.repair != nullptr) {
            for (const auto& ringtone : planned.repair->ringtones) {
                planned_.putRight.push_back(ringtone.name);
            }
        }
    }

    const std::optional<std::vector<engine::Operation>>& expected_;
    Planned planned_;
};

ChangeOfPhone::ChangeOfPhone(std::string udid, WantedChange wanted)
    : udid_(std::move(udid)), wanted_(std::move(wanted)) {}

ChangeOfPhone::~ChangeOfPhone() = default;

Planned ChangeOfPhone::plan(Job& job) {
    readSongs(job);
    const engine::WorkWatch watch = job.watch();
    Notes notes(watch, expected_);
    run(job, /*isDryRun=*/true, notes);
    Planned& planned = notes.found();
    planned.songs = songs_->used();
    planned.unusable = songs_->unusable();
    planned.skipped = skipped_;
    planned.unreadableTags = songs_->unreadableTags();
    expected_ = planned.plan.operations;
    return planned;
}

engine::ChangeDone ChangeOfPhone::sync(Job& job) {
    readSongs(job);
    const engine::WorkWatch watch = job.watch();
    Notes notes(watch, expected_);
    run(job, /*isDryRun=*/false, notes);
    return notes.result();
}

/// Once: what was made of them is kept from the plan to the sync.
void ChangeOfPhone::readSongs(Job& job) {
    if (!songs_) {
        auto songs = std::make_unique<Songs>(wanted_);
        std::vector<audio::SongIntake::Given> given = wanted_.songs;
        if (wanted_.folder) {
            const auto types = wanted_.recipe.treatment == audio::Treatment::Unchecked
                                   ? audio::SongTypes::RingtonesOnly
                                   : audio::SongTypes::All;
            const auto found = audio::songsIn(*wanted_.folder, types, wanted_.isRecursive);
            for (const fs::path& song : found.songs) {
                given.push_back({song});
            }
            skipped_ = found.skipped;
        }
        hasSongs_ = !given.empty();
        songs->intake().read(given);
        songs->requireOne();
        songs_ = std::move(songs);
    }
    songs_->hearOf(job);
}

void ChangeOfPhone::run(Job& job, bool isDryRun, Notes& notes) {
    OpenPhone phone({.udid = udid_});
    engine::ChangeJob change(phone,
                             {.isForced = wanted_.isForced,
                              .rebuilds = wanted_.rebuilds,
                              .keeps = wanted_.keeps,
                              .isDryRun = isDryRun},
                             what(), notes);
    change.run([&](const PhoneState& state) {
        job.requireWanted();
        edit(phone, state);
    });
}

/// As vesk calls what would do the same, for the history.
std::string ChangeOfPhone::what() const {
    const bool adds = !wanted_.songs.empty();
    const bool removes = !wanted_.removed.empty();
    const bool renames = !wanted_.renamed.empty();
    if (wanted_.isWhole || adds + removes + renames != 1) {
        return "sync";
    }
    return adds ? "add" : removes ? "remove" : "rename";
}

void ChangeOfPhone::edit(OpenPhone& phone, const PhoneState& state) {
    songs_->begin();
    audio::SongIntake& intake = songs_->intake();
    if (wanted_.isWhole) {
        audio::makeHoldFolder(phone, state,
                              {.songs = intake,
                               .isEmpty = !hasSongs_,
                               .isConsented = wanted_.isConsented,
                               .name = wanted_.folder ? fmt::format("\"{}\" has no songs: a sync",
                                                                    wanted_.folder->string())
                                                      : "a sync with no songs"});
        return;
    }
    const PhoneState rest = rename(phone, state);
    if (hasSongs_) {
        intake.choose(rest, Others::Stay);
        if (!wanted_.replaces) {
            requireNamesFree(rest, intake.names());
        }
        engine::replaceRingtones(phone.tones(),
                                 intake.made(phone, rest, audio::SongIntake::Same::BySource));
    }
}

/// Renames and removes.
/// @return the phone as it is then, as far as what is added has to know
PhoneState ChangeOfPhone::rename(OpenPhone& phone, const PhoneState& state) {
    PhoneState rest = state;
    for (const auto& [from, to] : wanted_.renamed) {
        const std::string there = foundNames(rest, {from}).front();
        const std::string name = engine::composed(to);
        engine::requireUsableName(name);
        if (name == there) {
            continue;
        }
        requireNameFree(rest, there, name);
        engine::renameRingtone(phone.tones(), there, name);
        for (PhoneRingtone& ringtone : rest.ringtones) {
            ringtone.name = ringtone.name == there ? name : ringtone.name;
        }
    }
    const std::vector<std::string> removed = foundNames(rest, wanted_.removed);
    const std::set<std::string> going(removed.begin(), removed.end());
    engine::removeRingtones(phone.tones(), removed);
    std::erase_if(rest.ringtones,
                  [&](const PhoneRingtone& one) { return going.contains(one.name); });
    return rest;
}

} // namespace krl::python
