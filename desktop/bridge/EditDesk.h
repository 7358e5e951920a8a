#pragma once

#include "desktop/bridge/EditFile.h"
#include "desktop/bridge/Mailbox.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace krl::desktop {

/// Edits that were kept, as far as they are of use.
struct KeptEdits {
    Edits edits;
    std::vector<std::filesystem::path> missing; ///< songs whose files are gone, not among the edits
    bool isDamaged = false;                     ///< there is something that cannot be read
};

/// Keeps what a person wants changed while the window is closed, on a thread of its own.
class EditDesk {
public:
    /// @param folder  of the state of all programs; none: nothing is kept
    EditDesk(Mailbox& mailbox, std::optional<std::filesystem::path> folder);

    /// Waits until all is kept.
    ~EditDesk();

    EditDesk(const EditDesk&) = delete;
    EditDesk& operator=(const EditDesk&) = delete;

    /// @param tell  called by the mailbox with what was kept
    void load(const std::string& udid, std::function<void(KeptEdits)> tell);

    /// Keeps these in the place of earlier ones.
    /// @param tell  called by the mailbox with whether they are kept
    void save(const std::string& udid, Edits edits, std::function<void(bool)> tell);

private:
    using Work = std::function<void()>;

    void post(Work work);
    void run();

    Mailbox& mailbox_;
    const std::optional<std::filesystem::path> folder_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Work> work_; ///< under the lock
    bool isEnding_ = false; ///< under the lock
    std::thread thread_;
};

} // namespace krl::desktop
