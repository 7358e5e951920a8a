#pragma once

#include "audio/preparing/PeaksReader.h"
#include "audio/songs/RingtoneMaker.h"
#include "audio/songs/SongReader.h"
#include "desktop/bridge/EditFile.h"
#include "desktop/bridge/Mailbox.h"
#include "desktop/bridge/Outcome.h"
#include "engine/files/LocalFile.h"
#include "engine/files/NamelessFile.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace krl::desktop {

/// A song is no ringtone as it is: one is being made of it.
struct SongIsPrepared {};

/// What can go to the phone.
struct SongIsReady {
    engine::LocalRingtone ringtone;
    std::optional<double> seconds;
    bool wasPrepared = false;
};

/// A part of a song that is to become a ringtone.
struct SongCut {
    std::filesystem::path song;
    std::string name; ///< of the ringtone
    audio::Wish wish;
};

using SongNews = std::variant<SongIsPrepared, SongIsReady, engine::Failure>;

/// Looks at songs of this computer, and makes ringtones of those that are none, on threads of its
/// own. What it makes lies in a folder that nobody else can read and that goes with it.
class SongDesk {
public:
    explicit SongDesk(Mailbox& mailbox);

    /// Songs that have not begun are left alone; what is made of those under way is broken off.
    ~SongDesk();

    SongDesk(const SongDesk&) = delete;
    SongDesk& operator=(const SongDesk&) = delete;

    /// @param song            without a cut, what is usual becomes a ringtone, or all of a song that the
    ///                        phone plays as it is
    /// @param firmwareNumber  of the phone that it is for
    /// @param tell            called by the mailbox, until the song is ready or cannot be used
    void take(const Edits::Song& song, int firmwareNumber, std::function<void(SongNews)> tell);

    /// Makes a ringtone of a part of a song, also of one that would go as it is. Like what else is
    /// asked of a song that a person is busy with, it comes before songs that wait.
    void cut(const SongCut& wanted, int firmwareNumber, std::function<void(SongNews)> tell);

    using Waveform = Outcome<std::shared_ptr<const audio::Peaks>>;

    void readWaveform(const std::filesystem::path& song, std::function<void(Waveform)> tell);

    /// Seconds from a song's beginning.
    using Beginning = Outcome<double>;

    /// Looks for a good beginning of a ringtone of this length.
    void suggest(const std::filesystem::path& song, const audio::Wish& wish,
                 std::function<void(Beginning)> tell);

    using CutSound = Outcome<std::shared_ptr<engine::NamelessFile>>;

    /// Makes a part of a song to be heard.
    void makeSound(const std::filesystem::path& song, const audio::Wish& wish,
                   std::function<void(CutSound)> tell);

    /// The files of a folder, and of those in it, without hidden ones; a file is itself.
    void listFiles(const std::vector<std::filesystem::path>& places,
                   std::function<void(std::vector<std::filesystem::path>)> tell);

private:
    /// What a thread works with. What it has made is there for as long as the desk.
    struct Tools {
        explicit Tools(const std::stop_token& end)
            : preparer(audio::RingtoneCache(), audio::prepareProgram(), end),
              peaks(audio::prepareProgram(), end) {}

        audio::SongReader reader{audio::Treatment::Prepare, audio::NameSource::Tags};
        audio::Preparer preparer;
        audio::RingtoneMaker maker{audio::Recipe{}, preparer};
        audio::PeaksReader peaks;
    };

    using Work = std::function<void(Tools& tools)>;

    /// What a song becomes.
    struct Order {
        std::filesystem::path song;
        int firmwareNumber = 0;
        audio::Recipe recipe = {};
    };

    void post(Work work);
    void postFirst(Work work);
    Work making(Order order, std::function<void(SongNews)> tell);
    void run(Tools& tools);
    static SongIsReady readySong(Tools& tools, const Order& order,
                                 const std::function<void(SongNews)>& tell);

    static constexpr size_t kThreads = 2;

    Mailbox& mailbox_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Work> work_; ///< under the lock
    bool isEnding_ = false; ///< under the lock
    std::stop_source end_;
    std::array<Tools, kThreads> tools_;
    std::vector<std::thread> threads_;
};

} // namespace krl::desktop
