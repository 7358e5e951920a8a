#include "mobiledevice/provider/wire/SocketWatch.h"

#include <sys/inotify.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

namespace krl::provider {

namespace {

constexpr uint32_t kAppearing = IN_CREATE | IN_MOVED_TO | IN_ATTRIB;
constexpr uint32_t kFolderGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_Q_OVERFLOW;

} // namespace

SocketWatch::SocketWatch(const std::string& path)
    : events_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (events_) {
        watch(path);
    }
}

void SocketWatch::watch(const std::string& path) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::path awaited = fs::absolute(path, error);
    while (!error && awaited.has_relative_path()) {
        const fs::path folder = awaited.parent_path();
        const int watch = ::inotify_add_watch(events_.get(), folder.c_str(),
                                              kAppearing | kFolderGone | IN_ONLYDIR);
        if (watch < 0) {
            if (errno != ENOENT && errno != ENOTDIR) {
                break; // there, but not for us to watch
            }
            awaited = folder;
            continue;
        }
        name_ = awaited.filename();
        const bool isFolder = fs::is_directory(awaited, error);
        if (!isFolder) {
            return;
        }
        // It has come meanwhile: what is awaited stands in it.
        ::inotify_rm_watch(events_.get(), watch);
        awaited = fs::absolute(path, error);
    }
    events_ = UniqueDescriptor();
}

bool SocketWatch::takeNews() const {
    alignas(inotify_event) std::array<char, 4096> buffer;
    bool isNews = false;
    ssize_t got = 0;
    while ((got = ::read(events_.get(), buffer.data(), buffer.size())) > 0) {
        for (const char* at = buffer.data(); at < buffer.data() + got;) {
            inotify_event event;
            std::memcpy(&event, at, sizeof event);
            const std::string_view name(event.len == 0 ? "" : at + sizeof event);
            isNews = isNews || name == name_ || (event.mask & kFolderGone) != 0;
            at += sizeof event + event.len;
        }
    }
    return isNews;
}

} // namespace krl::provider
