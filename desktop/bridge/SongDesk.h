#pragma once

#include "audio/songs/RingtoneMaker.h"
#include "audio/songs/SongReader.h"
#include "desktop/bridge/Mailbox.h"
#include "engine/errors/Failure.h"
#include "engine/files/LocalFile.h"

#include <array>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
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

using SongNews = std::variant<SongIsPrepared, SongIsReady, engine::Failure>;

/// Looks at songs of this computer, and makes ringtones of those that are none, on threads of its
/// own. What it makes lies in a folder that nobody else can read and that goes with it.
class SongDesk {
public:
    explicit SongDesk(Mailbox& mailbox);

    /// Songs that have not begun are left alone; those under way are waited for.
    ~SongDesk();

    SongDesk(const SongDesk&) = delete;
    SongDesk& operator=(const SongDesk&) = delete;

    /// @param firmwareNumber  of the phone that it is for
    /// @param tell            called by the mailbox, until the song is ready or cannot be used
    void take(const std::filesystem::path& song, int firmwareNumber,
              std::function<void(SongNews)> tell);

    /// The files of a folder, and of those in it, without hidden ones; a file is itself.
    void listFiles(const std::vector<std::filesystem::path>& places,
                   std::function<void(std::vector<std::filesystem::path>)> tell);

private:
    /// What a thread works with. What it has made is there for as long as the desk.
    struct Tools {
        audio::SongReader reader{audio::Treatment::Prepare, audio::NameSource::Tags};
        audio::RingtoneMaker maker{audio::Recipe{}};
    };

    using Work = std::function<void(Tools& tools)>;

    void post(Work work);
    void run(Tools& tools);
    static SongIsReady readySong(Tools& tools, const std::filesystem::path& path,
                                 int firmwareNumber, const std::function<void(SongNews)>& tell);

    static constexpr size_t kThreads = 2;

    Mailbox& mailbox_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Work> work_; ///< under the lock
    bool isEnding_ = false; ///< under the lock
    std::array<Tools, kThreads> tools_;
    std::vector<std::thread> threads_;
};

} // namespace krl::desktop
