#include "desktop/bridge/PhoneWork.h"

#include "engine/change/ChangeJob.h"
#include "engine/fetch/RingtoneFetch.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace krl::desktop {

using namespace engine;

namespace {

/// A safe that cannot be read is said by those who need it.
template <typename T>
T orNothing(const std::function<T()>& look) {
    try {
        return look();
    } catch (const Failure&) {
        return {};
    }
}

void requireFree(const PhoneState& state, const WantedChange& wanted) {
    std::set<std::string> going(wanted.removed.begin(), wanted.removed.end());
    const Spellings spellings(state.ringtones);
    std::vector<std::string> taken;
    for (const auto& [from, to] : wanted.renamed) {
        const auto there = spellings.of(to);
        if (there && *there != from && spellings.of(from)) {
            taken.push_back(*there);
        }
        going.insert(from);
    }
    for (const LocalRingtone& ringtone : wanted.added) {
        const auto there = spellings.of(ringtone.name);
        if (there && !going.contains(*there)) {
            taken.push_back(*there);
        }
    }
    if (!taken.empty()) {
        throw Failure(FailureKind::NameTaken,
                      fmt::format("{} already has {}", state.facts.label(), quotedList(taken)));
    }
}

void rename(KRTRingtoneManager& tones, const PhoneState& state,
            const std::vector<std::pair<std::string, std::string>>& renamed) {
    const std::set<std::string> there = namesOf(state.ringtones);
    for (const auto& [from, to] : renamed) {
        if (there.contains(from)) {
            renameRingtone(tones, from, to);
        }
    }
}

std::vector<std::string> stillThere(const PhoneState& state,
                                    const std::vector<std::string>& names) {
    const std::set<std::string> there = namesOf(state.ringtones);
    std::vector<std::string> result;
    std::copy_if(names.begin(), names.end(), std::back_inserter(result),
                 [&](const std::string& name) { return there.contains(name); });
    return result;
}

} // namespace

PhoneReading readPhone(const std::string& udid) {
    OpenPhone phone({.udid = udid});
    PhoneState state = readRingtones(phone);
    return {.facts = state.facts,
            .totalBytes = PhoneFiles(phone.phone()._rawDevice()).totalBytes(),
            .ringtones = std::move(state.ringtones),
            .catalogueIsUnreadable = state.catalogueIsUnreadable(),
            .brokenJob = orNothing<std::optional<Job>>([&] { return unfinishedJob(udid); }),
            .history = orNothing<std::vector<PastJob>>([&] { return pastJobs(udid); })};
}

std::shared_ptr<NamelessFile> fetchSound(const std::string& udid, const PhoneRingtone& ringtone) {
    OpenPhone phone({.udid = udid});
    auto file = std::make_shared<NamelessFile>();
    try {
        PhoneFiles files(phone.phone()._rawDevice());
        readRingtone(files, ringtone, [&](std::string_view piece) { file->add(piece); });
    } catch (const PhoneFileFailure& failure) {
        if (phone.isGone()) {
            throw Failure(FailureKind::PhoneGone, failure.what());
        }
        throw;
    }
    return file;
}

ChangeDone changePhone(const std::string& udid, const WantedChange& wanted,
                       const WorkWatch& watch) {
    OpenPhone phone({.udid = udid});
    ChangeNotes watcher(watch);
    ChangeJob job(phone, {.rebuilds = wanted.rebuilds, .keptJobs = wanted.keptJobs}, "sync",
                  watcher);
    job.run([&](const PhoneState& state) {
        requireFree(state, wanted);
        rename(phone.tones(), state, wanted.renamed);
        removeRingtones(phone.tones(), stillThere(state, wanted.removed));
        addRingtones(phone.tones(), wanted.added);
    });
    return watcher.result();
}

} // namespace krl::desktop
