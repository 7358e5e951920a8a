#pragma once

#include "desktop/bridge/Mailbox.h"
#include "desktop/bridge/Preferences.h"
#include "desktop/bridge/WorkThread.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace krl::desktop {

/// A person's preferences. They are read and kept on a thread of their own; its end waits until they
/// are kept. For the main loop.
class PreferenceDesk {
public:
    /// Begins to read them.
    /// @param folder  of the preferences of all programs; none: nothing is read or kept
    PreferenceDesk(Mailbox& mailbox, std::optional<std::filesystem::path> folder);

    /// Keeps what is not kept yet.
    ~PreferenceDesk();

    PreferenceDesk(const PreferenceDesk&) = delete;
    PreferenceDesk& operator=(const PreferenceDesk&) = delete;

    enum class Problem {
        NotRead, ///< what was kept is damaged, and the usual ones hold
        NotKept
    };

    std::function<void(Problem)> onProblem = [](Problem) {};

    /// The usual ones before they were read.
    const Preferences& now() const { return now_; }

    /// How many syncs of each phone are kept; none before they were read, and where they could not be:
    /// what somebody wanted to keep is not given up for what is usual.
    std::optional<size_t> keptSyncs() const {
        return isKnown_ ? std::optional(now_.keptSyncs) : std::nullopt;
    }

    /// Calls it when they were read, at once if that was before.
    void whenRead(std::function<void()> function);

    /// From now on these hold, and are kept. Once they were read.
    void change(const Preferences& preferences);

private:
    void put(std::function<void()> letter);
    void take(const std::optional<Preferences>& read);
    void keep();

    Mailbox& mailbox_;
    const std::optional<std::filesystem::path> folder_;
    Preferences now_;
    Preferences kept_;
    bool isRead_ = false;
    bool isKnown_ = false; ///< and not damaged
    bool isBeingKept_ = false;
    std::vector<std::function<void()>> waiting_; ///< until they are read

    /// Letters that are taken out of the mailbox after our end find it gone.
    const std::shared_ptr<const bool> isThere_ = std::make_shared<const bool>(true);
    WorkThread thread_;
};

} // namespace krl::desktop
