#include "desktop/bridge/EditDesk.h"

#include "desktop/bridge/Worker.h"
#include "engine/errors/Failure.h"

#include <system_error>
#include <utility>

namespace krl::desktop {
namespace {

namespace fs = std::filesystem;

KeptEdits keptIn(const fs::path& file) {
    KeptEdits kept;
    try {
        kept.edits = readEdits(file);
    } catch (const std::exception&) {
        kept.isDamaged = true;
    }
    std::erase_if(kept.edits.songs, [&](const Edits::Song& song) {
        std::error_code ignored;
        const bool isThere = fs::exists(song.path, ignored);
        if (!isThere) {
            kept.missing.push_back(song.path);
        }
        return !isThere;
    });
    return kept;
}

} // namespace

EditDesk::EditDesk(Mailbox& mailbox, std::optional<fs::path> folder)
    : mailbox_(mailbox), folder_(std::move(folder)) {
    thread_ = startWorker([this] { run(); });
}

EditDesk::~EditDesk() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

void EditDesk::load(const std::string& udid, std::function<void(KeptEdits)> tell) {
    post([this, udid, tell = std::move(tell)] {
        KeptEdits kept = folder_ ? keptIn(editFile(*folder_, udid)) : KeptEdits{};
        mailbox_.put([tell, kept = std::move(kept)] { tell(kept); });
    });
}

void EditDesk::save(const std::string& udid, Edits edits, std::function<void(bool)> tell) {
    post([this, udid, edits = std::move(edits), tell = std::move(tell)] {
        bool isKept = true;
        try {
            if (folder_) {
                writeEdits(editFile(*folder_, udid), edits);
            }
        } catch (const std::exception&) {
            isKept = false;
        }
        mailbox_.put([tell, isKept] { tell(isKept); });
    });
}

void EditDesk::post(Work work) {
    {
        const std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    changed_.notify_one();
}

void EditDesk::run() {
    for (;;) {
        Work work;
        {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isEnding_ || !work_.empty(); });
            if (work_.empty()) {
                return;
            }
            work = std::move(work_.front());
            work_.pop_front();
        }
        work();
    }
}

} // namespace krl::desktop
