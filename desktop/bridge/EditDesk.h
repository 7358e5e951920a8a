#pragma once

#include "desktop/bridge/EditFile.h"
#include "desktop/bridge/Mailbox.h"
#include "desktop/bridge/WorkThread.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace krl::desktop {

/// Edits that were kept, as far as they are of use.
struct KeptEdits {
    Edits edits;
    std::vector<std::filesystem::path> missing; ///< songs whose files are gone, not among the edits
    bool isDamaged = false;                     ///< there is something that cannot be read
};

/// Keeps what a person wants changed while the window is closed, on a thread of its own. Its end waits
/// until all is kept.
class EditDesk {
public:
    /// @param folder  of the state of all programs; none: nothing is kept
    EditDesk(Mailbox& mailbox, std::optional<std::filesystem::path> folder)
        : mailbox_(mailbox), folder_(std::move(folder)) {}

    /// @param tell  called by the mailbox with what was kept
    void load(const std::string& udid, std::function<void(KeptEdits)> tell);

    /// Keeps these in the place of earlier ones.
    /// @param tell  called by the mailbox with whether they are kept
    void save(const std::string& udid, Edits edits, std::function<void(bool)> tell);

private:
    Mailbox& mailbox_;
    const std::optional<std::filesystem::path> folder_;
    WorkThread thread_;
};

} // namespace krl::desktop
