#pragma once

#include "desktop/bridge/Mailbox.h"
#include "engine/errors/Failure.h"
#include "engine/files/LocalFile.h"

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

    /// @param playsOlderKinds  whether the phone plays what only firmware through 1.1.2 does
    /// @param tell             called by the mailbox, until the song is ready or cannot be used
    void take(const std::filesystem::path& song, bool playsOlderKinds,
              std::function<void(SongNews)> tell);

    /// The files of a folder, and of those in it, without hidden ones; a file is itself.
    void listFiles(const std::vector<std::filesystem::path>& places,
                   std::function<void(std::vector<std::filesystem::path>)> tell);

private:
    void post(std::function<void()> work);
    void run();
    SongIsReady readySong(const std::filesystem::path& song, bool playsOlderKinds,
                          const std::function<void(SongNews)>& tell);
    SongIsReady prepared(const std::filesystem::path& song);

    Mailbox& mailbox_;
    const std::filesystem::path folder_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> work_; ///< under the lock
    bool isEnding_ = false;                  ///< under the lock
    size_t count_ = 0;                       ///< under the lock; of ringtones made
    std::vector<std::thread> threads_;
};

} // namespace krl::desktop
