#include "engine/files/FolderWatch.h"

#include "engine/errors/Failure.h"

#include <fmt/format.h>

#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <system_error>
#include <utility>
#include <vector>

namespace krl::engine {
namespace {

namespace fs = std::filesystem;

// A file that is being written is not news, and one that is only read never is.
constexpr uint32_t kContents = IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr uint32_t kNames = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr uint32_t kItself = IN_DELETE_SELF | IN_MOVE_SELF;

Failure cannotWatch() {
    return {FailureKind::Unexpected,
            fmt::format("changes of folders cannot be watched: {}", std::strerror(errno)),
            "Programs of this user watch too many already: see fs.inotify.max_user_watches and "
            "fs.inotify.max_user_instances (sysctl)."};
}

confined::OpenFile newSet() {
    confined::OpenFile set(epoll_create1(EPOLL_CLOEXEC));
    if (!set) {
        throw std::system_error(errno, std::generic_category(), "no descriptor to watch with");
    }
    return set;
}

void join(const confined::OpenFile& set, int descriptor) {
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    if (epoll_ctl(set.get(), EPOLL_CTL_ADD, descriptor, &wanted) != 0) {
        throw std::system_error(errno, std::generic_category(), "a descriptor cannot be watched");
    }
}

std::string nameOf(const inotify_event& event) {
    return event.len > 0 ? event.name : "";
}

bool isHidden(const std::string& name) {
    return name.starts_with('.');
}

/// What is new under a name of its own and never written: a link to a file that was there.
bool isLink(const fs::path& file) {
    struct stat status = {};
    return lstat(file.c_str(), &status) == 0 && (S_ISLNK(status.st_mode) || status.st_nlink > 1);
}

/// Where the first link of a path that leads to nothing leads to; empty when there is none.
fs::path beyondDanglingLink(const fs::path& path) {
    std::error_code ignored;
    fs::path before;
    for (auto part = path.begin(); part != path.end(); ++part) {
        const fs::path link = before / *part;
        if (!fs::exists(link, ignored) && fs::is_symlink(fs::symlink_status(link, ignored))) {
            fs::path target = before / fs::read_symlink(link, ignored);
            std::for_each(std::next(part), path.end(), [&](const fs::path& one) { target /= one; });
            return target.lexically_normal();
        }
        before = link;
    }
    return {};
}

/// The path as it is, and others that it leads to.
std::vector<fs::path> placesOf(const fs::path& folder) {
    constexpr size_t kMostLinks = 40; // as many as the system follows
    std::vector<fs::path> places{folder};
    for (fs::path next = beyondDanglingLink(folder); !next.empty() && places.size() < kMostLinks;
         next = beyondDanglingLink(next)) {
        places.push_back(next);
    }
    std::error_code error;
    if (const fs::path target = fs::canonical(folder, error); !error && target != folder) {
        places.push_back(target);
    }
    return places;
}

/// Without a slash at its end, so that it has a last name.
fs::path plain(const fs::path& folder) {
    const fs::path path = fs::absolute(folder).lexically_normal();
    return path.has_filename() ? path : path.parent_path();
}

} // namespace

FolderWatch::FolderWatch(const fs::path& folder, bool recursive, std::unique_ptr<QuietTimer> timer)
    : folder_(plain(folder)), recursive_(recursive), timer_(std::move(timer)), all_(newSet()) {
    join(all_, timer_->descriptor());
    lookAnew();
}

bool FolderWatch::changed() {
    takeEvents();
    return timer_->takeEnd();
}

bool FolderWatch::isThere() const {
    std::error_code ignored;
    return fs::is_directory(folder_, ignored);
}

/// Replaces all that is watched. News of before are lost with it.
void FolderWatch::lookAnew() {
    while (!lookOnce()) {
        // It came or went while it was looked at.
    }
}

bool FolderWatch::lookOnce() {
    events_ = confined::OpenFile(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!events_) {
        throw cannotWatch();
    }
    join(all_, events_.get());
    contents_.clear();
    names_.clear();
    wasThere_ = isThere();
    bool isSettled = true;
    for (const fs::path& place : placesOf(folder_)) {
        isSettled = watchPlace(place) && isSettled;
    }
    if (wasThere_) {
        watchContents(folder_);
    }
    return isSettled && isThere() == wasThere_;
}

void FolderWatch::watchContents(const fs::path& folder) {
    const int watched = add(folder, kContents | IN_ONLYDIR | IN_EXCL_UNLINK);
    if (watched < 0) {
        return;
    }
    contents_[watched] = folder;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; recursive_ && !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (!isHidden(entry->path().filename().string()) &&
            fs::is_directory(entry->symlink_status(ignored))) {
            watchContents(entry->path());
        }
    }
}

/// Watches that a path keeps leading to the same folder, or when it begins to lead to one.
/// @return whether it was the same from beginning to end
bool FolderWatch::watchPlace(const fs::path& place) {
    fs::path path;
    for (const fs::path& part : place) {
        path /= part;
        // A folder on the way may be busy: of what is in it only the last name counts, or the
        // first that is missing.
        add(path, kItself | IN_DONT_FOLLOW);
        std::error_code ignored;
        const bool exists = fs::exists(path, ignored);
        if (path == place || !exists) {
            watchName(path);
        }
        if (!exists) {
            return !fs::exists(path, ignored);
        }
    }
    return true;
}

void FolderWatch::watchName(const fs::path& place) {
    const int watched = add(place.parent_path(), kNames | IN_ONLYDIR);
    if (watched >= 0) {
        names_.emplace(watched, place.filename());
    }
}

/// @return where events come from, or -1 when there is nothing to watch
int FolderWatch::add(const fs::path& path, uint32_t mask) const {
    const int watched = inotify_add_watch(events_.get(), path.c_str(), mask | IN_MASK_ADD);
    if (watched < 0 && (errno == ENOSPC || errno == ENOMEM)) {
        throw cannotWatch();
    }
    return watched;
}

void FolderWatch::takeEvents() {
    News news;
    alignas(inotify_event) std::array<char, 64 * 1024> bytes;
    ssize_t got = 0;
    while ((got = read(events_.get(), bytes.data(), bytes.size())) > 0) {
        for (size_t at = 0; at < static_cast<size_t>(got);) {
            const auto& event = *reinterpret_cast<const inotify_event*>(bytes.data() + at);
            judge(event, news);
            at += sizeof(inotify_event) + event.len;
        }
    }
    if (news.lookAnew) {
        const bool wasThere = wasThere_;
        lookAnew();
        news.changed = news.changed || wasThere || wasThere_;
    }
    if (news.changed) {
        timer_->start();
    }
}

void FolderWatch::judge(const inotify_event& event, News& news) const {
    constexpr uint32_t kWatchEnds = kItself | IN_IGNORED | IN_UNMOUNT | IN_Q_OVERFLOW;
    if ((event.mask & kWatchEnds) != 0 || concernsName(event)) {
        news.lookAnew = true;
    } else if (concernsContents(event)) {
        news.changed = true;
        news.lookAnew = news.lookAnew || (event.mask & IN_ISDIR) != 0;
    }
}

bool FolderWatch::concernsName(const inotify_event& event) const {
    const auto [first, last] = names_.equal_range(event.wd);
    return std::any_of(first, last,
                       [&](const auto& watched) { return watched.second == nameOf(event); });
}

bool FolderWatch::concernsContents(const inotify_event& event) const {
    const auto folder = contents_.find(event.wd);
    const std::string name = nameOf(event);
    if (folder == contents_.end() || isHidden(name)) {
        return false;
    }
    if ((event.mask & IN_ISDIR) != 0) {
        return recursive_;
    }
    return (event.mask & IN_CREATE) == 0 || isLink(folder->second / name);
}

} // namespace krl::engine
