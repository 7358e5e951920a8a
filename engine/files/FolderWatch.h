#pragma once

#include "confined/OpenFile.h"
#include "engine/files/QuietTimer.h"

#include <sys/inotify.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>

namespace krl::engine {

/// Notices when what a folder holds has changed and then been left alone for a while: files
/// written, come, gone or renamed, and the folder itself, gone, back or another one in its place.
/// Hidden files do not count, nor does reading. While nothing changes there is nothing to do, and no
/// timer runs.
class FolderWatch {
public:
    /// How long a folder is left alone when a copy is complete.
    static constexpr std::chrono::milliseconds kQuiet{2000};

    /// Begins to watch. The folder may be missing; its coming is a change.
    /// @param recursive  whether folders in it, which are not hidden and no links, count as well
    /// @throw Failure when the computer watches too many files already
    explicit FolderWatch(const std::filesystem::path& folder, bool recursive = false,
                         std::unique_ptr<QuietTimer> timer = newQuietTimer(kQuiet));

    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// A descriptor that is readable when changed() has something to do, for a main loop of any
    /// kind. Nothing is to be read from it.
    int descriptor() const { return all_.get(); }

    /// Takes in what has happened; whether there were changes and the folder has been left alone
    /// since. Never waits.
    /// @throw Failure as the constructor; the watch is not to be used any more then
    bool changed();

private:
    /// What is to be done after events.
    struct News {
        bool changed = false;
        bool lookAnew = false;
    };

    bool isThere() const;
    void lookAnew();
    bool lookOnce();
    void watchContents(const std::filesystem::path& folder);
    bool watchPlace(const std::filesystem::path& place);
    void watchName(const std::filesystem::path& place);
    int add(const std::filesystem::path& path, uint32_t mask) const;
    void takeEvents();
    void judge(const inotify_event& event, News& news) const;
    bool concernsName(const inotify_event& event) const;
    bool concernsContents(const inotify_event& event) const;

    const std::filesystem::path folder_; ///< absolute
    const bool recursive_;
    const std::unique_ptr<QuietTimer> timer_;
    confined::OpenFile all_;    ///< an epoll descriptor of the timer and the next
    confined::OpenFile events_; ///< of inotify
    bool wasThere_ = false;

    // By what the events say of where they come from.
    std::map<int, std::filesystem::path> contents_;   ///< folders whose contents count
    std::multimap<int, std::filesystem::path> names_; ///< names in other folders that count
};

} // namespace krl::engine
