#include "desktop/bridge/MirrorDesk.h"

#include "desktop/bridge/Worker.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>
#include <vector>

namespace krl::desktop {

using engine::Failure;
using engine::FailureKind;

MirrorDesk::MirrorDesk(Mailbox& mailbox)
    : mailbox_(mailbox), event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (event_ < 0) {
        throw std::system_error(errno, std::generic_category(), "no descriptor for folders");
    }
    thread_ = startWorker([this] { run(); });
}

MirrorDesk::~MirrorDesk() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    eventfd_write(event_, 1);
    thread_.join();
    close(event_);
}

void MirrorDesk::watch(const std::string& key, const std::filesystem::path& folder) {
    post([this, key, folder] {
        watches_.erase(key);
        try {
            watches_.emplace(key, std::make_unique<engine::FolderWatch>(folder));
        } catch (const Failure& failure) {
            tellNotWatched(key, failure);
        } catch (const std::exception& error) {
            tellNotWatched(key, Failure(FailureKind::Unexpected, error.what()));
        }
    });
}

void MirrorDesk::endWatch(const std::string& key) {
    post([this, key] { watches_.erase(key); });
}

void MirrorDesk::prepare(std::shared_ptr<MirrorSongs> songs, PhoneReading phone, WorkWatch watch,
                         std::function<void(const Prepared&)> answer) {
    post([this, songs = std::move(songs), phone = std::move(phone), watch = std::move(watch),
          answer = std::move(answer)] {
        Prepared prepared = outcomeOf<std::shared_ptr<MirrorSongs>>([&] {
            songs->prepare(phone, watch);
            return songs;
        });
        mailbox_.put([answer, prepared = std::move(prepared)] { answer(prepared); });
    });
}

void MirrorDesk::tellNotWatched(const std::string& key, const Failure& failure) {
    mailbox_.put([this, key, failure] { onNotWatched(key, failure); });
}

void MirrorDesk::post(Work work) {
    {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    eventfd_write(event_, 1);
}

void MirrorDesk::run() {
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (isEnding_) {
                return;
            }
        }
        if (!doNext()) {
            sleep();
            lookAtFolders();
        }
    }
}

bool MirrorDesk::doNext() {
    Work work;
    {
        const std::lock_guard lock(mutex_);
        if (work_.empty()) {
            return false;
        }
        work = std::move(work_.front());
        work_.pop_front();
    }
    work();
    return true;
}

/// Until there is work or news of a folder.
void MirrorDesk::sleep() {
    std::vector<pollfd> waited{{.fd = event_, .events = POLLIN, .revents = 0}};
    for (const auto& [key, watch] : watches_) {
        waited.push_back({.fd = watch->descriptor(), .events = POLLIN, .revents = 0});
    }
    poll(waited.data(), waited.size(), -1);
    eventfd_t count = 0;
    eventfd_read(event_, &count);
}

void MirrorDesk::lookAtFolders() {
    for (auto next = watches_.begin(); next != watches_.end();) {
        const std::string key = next->first;
        try {
            if (next->second->changed()) {
                mailbox_.put([this, key] { onChanged(key); });
            }
            ++next;
        } catch (const Failure& failure) {
            tellNotWatched(key, failure);
            next = watches_.erase(next);
        } catch (const std::exception& error) {
            tellNotWatched(key, Failure(FailureKind::Unexpected, error.what()));
            next = watches_.erase(next);
        }
    }
}

} // namespace krl::desktop
