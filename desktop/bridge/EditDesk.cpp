#include "desktop/bridge/EditDesk.h"

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

void EditDesk::load(const std::string& udid, std::function<void(KeptEdits)> tell) {
    thread_.post([this, udid, tell = std::move(tell)] {
        KeptEdits kept = folder_ ? keptIn(editFile(*folder_, udid)) : KeptEdits{};
        mailbox_.put([tell, kept = std::move(kept)] { tell(kept); });
    });
}

void EditDesk::save(const std::string& udid, Edits edits, std::function<void(bool)> tell) {
    thread_.post([this, udid, edits = std::move(edits), tell = std::move(tell)] {
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

} // namespace krl::desktop
