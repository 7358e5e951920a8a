#pragma once

#include "desktop/bridge/Mailbox.h"
#include "desktop/bridge/MirrorWork.h"
#include "desktop/bridge/Outcome.h"
#include "engine/files/FolderWatch.h"

#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace krl::desktop {

/// Watches folders that phones mirror, and prepares the songs in them, on a thread of its own.
class MirrorDesk {
public:
    explicit MirrorDesk(Mailbox& mailbox);

    /// Waits for the song under way.
    ~MirrorDesk();

    MirrorDesk(const MirrorDesk&) = delete;
    MirrorDesk& operator=(const MirrorDesk&) = delete;

    /// Called by the mailbox: what a folder holds is another, and has been left alone for a moment.
    std::function<void(const std::string& key)> onChanged = [](const std::string&) {};

    /// Called by the mailbox: the computer watches too many files to watch this one.
    std::function<void(const std::string& key, const engine::Failure&)> onNotWatched =
        [](const std::string&, const engine::Failure&) {};

    /// From now on the folder of this key is watched.
    void watch(const std::string& key, const std::filesystem::path& folder);

    void endWatch(const std::string& key);

    using Prepared = Outcome<std::shared_ptr<MirrorSongs>>;

    /// Prepares the songs of a folder.
    /// @param songs   nobody else's until the answer
    /// @param phone   as it was read last
    /// @param answer  called by the mailbox
    void prepare(std::shared_ptr<MirrorSongs> songs, PhoneReading phone, WorkWatch watch,
                 std::function<void(const Prepared&)> answer);

private:
    using Work = std::function<void()>;

    void post(Work work);
    void run();

    /// @return whether there was some
    bool doNext();
    void sleep();
    void lookAtFolders();
    void tellNotWatched(const std::string& key, const engine::Failure& failure);

    Mailbox& mailbox_;
    const int event_; ///< an eventfd, readable while there is work
    std::mutex mutex_;
    std::deque<Work> work_;                                               ///< under the lock
    bool isEnding_ = false;                                               ///< under the lock
    std::map<std::string, std::unique_ptr<engine::FolderWatch>> watches_; ///< the thread's own
    std::thread thread_;
};

} // namespace krl::desktop
