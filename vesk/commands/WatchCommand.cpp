#include "vesk/commands/Commands.h"

#include "engine/files/FolderWatch.h"
#include "engine/files/RegularFile.h"
#include "engine/phones/DeviceNews.h"
#include "engine/phones/PairingKeeper.h"
#include "vesk/commands/DeviceTexts.h"
#include "vesk/terminal/Guarded.h"
#include "vesk/terminal/Interrupt.h"

#include <CoreFoundation/CoreFoundation.h>
#include <fmt/format.h>

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <system_error>
#include <vector>

namespace vesk {
namespace {

void showEvent(bool arrived, const DeviceDescription& about, Output& output) {
    if (output.json()) {
        Json object{{"event", arrived ? "attached" : "removed"}};
        object.update(deviceJson(about));
        output.objectLine(object);
        return;
    }
    const std::string problem = arrived ? problemOf(about) : "";
    output.line(fmt::format("{} {}  {}  {}  {}{}", arrived ? "attached" : "removed ",
                            orUnknown(about.udid), orUnknown(about.name),
                            orUnknown(about.deviceClass), orUnknown(about.firmware),
                            problem.empty() ? "" : "  (" + problem + ")"));
    output.flush();
}

/// A phone, or what may be one and does not say.
bool mayBePhone(const DeviceDescription& about) {
    return about.isIphone() || !about.reachable;
}

void requireFolder(const std::string& folder) {
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        throw unreadable(folder, error ? error.message() : "it is not a folder",
                         "Check the path and its permissions, or make the folder.");
    }
}

/// Sleeps until one of these is readable, and no descriptor below zero. Only what happens wakes it:
/// there is no time at which it looks whether something has.
void waitForAny(std::vector<pollfd> waited) {
    if (poll(waited.data(), waited.size(), -1) < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "nothing can be waited for");
    }
}

int pollDescriptorOfThisThread() {
    const int descriptor = CFRunLoopGetPollDescriptor(CFRunLoopGetCurrent());
    if (descriptor < 0) {
        throw std::system_error(EMFILE, std::generic_category(), "news cannot be waited for");
    }
    return descriptor;
}

/// Phones as they come and go, and with a folder its syncs.
class Watching {
public:
    Watching(const Options& options, Output& output)
        : options_(options), output_(output),
          syncOutput_({.json = options.json, .quiet = options.quiet, .event = "sync"}) {
        if (!options.arguments.empty()) {
            requireFolder(options.arguments.front());
            folder_.emplace(options.arguments.front(), options.recursive);
        }
    }

    void run() {
        output_.note(folder_ ? fmt::format("watching for phones and changes of \"{}\"; Ctrl-C ends",
                                           options_.arguments.front())
                             : "watching for phones; Ctrl-C ends");
        const int news = pollDescriptorOfThisThread();
        for (;;) {
            const bool phoneHasCome = takeNews();
            const bool folderHasChanged = folder_ && folder_->changed();
            if (!output_.isWanted() || interrupted()) {
                return;
            }
            if (folder_ && !phones_.empty() && (phoneHasCome || folderHasChanged)) {
                sync();
            } else {
                waitForAny(
                    {{.fd = news, .events = POLLIN, .revents = 0},
                     {.fd = folder_ ? folder_->descriptor() : -1, .events = POLLIN, .revents = 0}});
            }
        }
    }

private:
    /// @return whether a phone is among what has come
    bool takeNews() {
        bool phoneHasCome = false;
        while (const auto item = news_.next(std::chrono::milliseconds{0})) {
            const AttachedDevice& device = item->device;
            // One that has gone cannot be asked for its name.
            const bool isMeant = item->arrived ? !meantDevices(options_.phone, {device}).empty()
                                               : std::erase(shown_, device.device) > 0;
            if (!isMeant) {
                continue;
            }
            showEvent(item->arrived, device.description, output_);
            if (!item->arrived) {
                std::erase(phones_, device.device);
                continue;
            }
            shown_.push_back(device.device);
            if (mayBePhone(device.description)) {
                phones_.push_back(device.device);
                phoneHasCome = true;
            }
        }
        return phoneHasCome;
    }

    /// Says why when it could not be done: the next phone or change tries again.
    void sync() {
        guarded(syncOutput_, [this] { return runSync(options_, syncOutput_); });
        for (const std::string& note : takePairingNotes()) {
            output_.warning(note);
        }
        output_.flush();
    }

    const Options& options_;
    Output& output_;
    Output syncOutput_;
    DeviceNews news_;
    std::optional<FolderWatch> folder_;
    std::vector<Device> shown_;  ///< those attached that are meant
    std::vector<Device> phones_; ///< of them those that may be phones
};

} // namespace

ExitCode runWatch(const Options& options, Output& output) {
    const InterruptScope scope(OnInterrupt::EndWatching);
    Watching(options, output).run();
    return ExitCode::Success;
}

} // namespace vesk
