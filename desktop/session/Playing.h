#pragma once

#include "desktop/bridge/PhoneDesk.h"
#include "desktop/bridge/PlayDesk.h"
#include "desktop/session/PhoneBook.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

namespace krl::desktop {

/// Lets a person hear ringtones, one at a time. What comes from a phone is fetched once.
class Playing {
public:
    /// Which row of which phone.
    struct Place {
        std::string phone;
        std::string row;

        friend bool operator==(const Place&, const Place&) = default;
    };

    /// Why there is nothing to be heard.
    struct Problem {
        enum class Kind { NotFetched, NoDevice, NotPlayed };
        Kind kind;
        Place place;
        std::string name; ///< of the ringtone
        std::optional<engine::Failure> failure = {};
    };

    /// @param phones  null when there are none
    Playing(Mailbox& mailbox, PhoneDesk* phones, std::string sink);

    std::function<void()> onChanged = [] {};
    std::function<void(const Problem&)> onProblem = [](const Problem&) {};

    /// What is heard, or fetched to be heard; nothing's row is empty.
    const Place& place() const { return place_; }

    Hearing hearingOf(const Place& place) const;

    void playFile(const Place& place, const std::string& name, const std::filesystem::path& file);

    void playFromPhone(const Place& place, const std::string& udid,
                       const engine::PhoneRingtone& ringtone);

    /// Lets a sound be heard that no row is about.
    /// @param told      when it has ended by itself
    /// @param progress  now and then, with how many seconds were heard
    void playApart(Sound sound, std::function<void(SoundNews)> told,
                   std::function<void(double)> progress);

    void stop();

    /// What was fetched from a phone may not be what it holds now.
    void forget(const std::string& phone);

private:
    /// A ringtone of a phone: where it lies there, and how large it is.
    using Source = std::tuple<std::string, std::string, std::string, uint64_t>;
    using File = std::shared_ptr<engine::NamelessFile>;

    void begin(const Place& place, Hearing hearing);
    void play(const std::string& name, Sound sound);
    void fetch(const Source& source, const std::string& udid,
               const engine::PhoneRingtone& ringtone);
    void keep(const Source& source, const File& file);
    File kept(const Source& source) const;
    void fail(Problem::Kind kind, const std::string& name, std::optional<engine::Failure> failure);

    PhoneDesk* const phones_;
    PlayDesk desk_;
    Place place_;
    Hearing hearing_ = Hearing::Nothing;
    uint64_t turn_ = 0; ///< counts what was asked for
    std::deque<std::pair<Source, File>> kept_;
};

} // namespace krl::desktop
