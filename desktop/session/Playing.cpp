#include "desktop/session/Playing.h"

#include <algorithm>

namespace krl::desktop {
namespace {

/// Each is an open file.
constexpr size_t kMostKept = 64;

} // namespace

Playing::Playing(Mailbox& mailbox, PhoneDesk* phones, std::string sink)
    : phones_(phones), desk_(mailbox, std::move(sink)) {}

Hearing Playing::hearingOf(const Place& place) const {
    return place == place_ ? hearing_ : Hearing::Nothing;
}

void Playing::begin(const Place& place, Hearing hearing) {
    desk_.stop();
    ++turn_;
    place_ = place;
    hearing_ = hearing;
    onChanged();
}

void Playing::stop() {
    begin({}, Hearing::Nothing);
}

void Playing::playFile(const Place& place, const std::string& name,
                       const std::filesystem::path& file) {
    begin(place, Hearing::Sound);
    play(name, {.path = file});
}

void Playing::playFromPhone(const Place& place, const std::string& udid,
                            const engine::PhoneRingtone& ringtone) {
    const Source source{place.phone, ringtone.guid, ringtone.file, ringtone.size};
    if (const File file = kept(source)) {
        begin(place, Hearing::Sound);
        play(ringtone.name, {.path = ringtone.name, .file = file});
    } else {
        begin(place, Hearing::Fetching);
        fetch(source, udid, ringtone);
    }
}

void Playing::playApart(Sound sound, std::function<void(SoundNews)> told,
                        std::function<void(double)> progress) {
    begin({}, Hearing::Nothing);
    desk_.play(std::move(sound), std::move(told), std::move(progress));
}

void Playing::fetch(const Source& source, const std::string& udid,
                    const engine::PhoneRingtone& ringtone) {
    phones_->ask<File>([udid, ringtone] { return fetchSound(udid, ringtone); },
                       [this, source, name = ringtone.name, turn = turn_](const auto& outcome) {
                           const File* const file = std::get_if<File>(&outcome);
                           if (file != nullptr) {
                               keep(source, *file);
                           }
                           if (turn != turn_) {
                               return; // the person wants something else by now
                           }
                           if (file == nullptr) {
                               fail(Problem::Kind::NotFetched, name,
                                    std::get<engine::Failure>(outcome));
                               return;
                           }
                           hearing_ = Hearing::Sound;
                           play(name, {.path = name, .file = *file});
                           onChanged();
                       });
}

void Playing::play(const std::string& name, Sound sound) {
    desk_.play(std::move(sound), [this, name](const SoundNews& news) {
        if (std::holds_alternative<SoundEnded>(news)) {
            stop();
        } else if (const auto* failure = std::get_if<engine::Failure>(&news)) {
            fail(Problem::Kind::NotPlayed, name, *failure);
        } else {
            fail(Problem::Kind::NoDevice, name, std::nullopt);
        }
    });
}

void Playing::fail(Problem::Kind kind, const std::string& name,
                   std::optional<engine::Failure> failure) {
    const Place place = place_;
    stop();
    onProblem({kind, place, name, std::move(failure)});
}

void Playing::keep(const Source& source, const File& file) {
    kept_.emplace_back(source, file);
    if (kept_.size() > kMostKept) {
        kept_.pop_front();
    }
}

Playing::File Playing::kept(const Source& source) const {
    const auto found = std::find_if(kept_.begin(), kept_.end(),
                                    [&](const auto& entry) { return entry.first == source; });
    return found == kept_.end() ? nullptr : found->second;
}

void Playing::forget(const std::string& phone) {
    std::erase_if(kept_, [&](const auto& entry) { return std::get<0>(entry.first) == phone; });
}

} // namespace krl::desktop
