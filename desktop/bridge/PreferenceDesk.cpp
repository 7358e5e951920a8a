#include "desktop/bridge/PreferenceDesk.h"

#include "desktop/bridge/PreferenceFile.h"

#include <exception>
#include <utility>

namespace krl::desktop {

namespace fs = std::filesystem;

PreferenceDesk::PreferenceDesk(Mailbox& mailbox, std::optional<fs::path> folder)
    : mailbox_(mailbox), folder_(std::move(folder)) {
    thread_.post([this] {
        std::optional<Preferences> read;
        try {
            read = folder_ ? readPreferences(preferenceFile(*folder_)) : Preferences{};
        } catch (const std::exception&) {
            // Said where it is taken.
        }
        put([this, read] { take(read); });
    });
}

PreferenceDesk::~PreferenceDesk() {
    isBeingKept_ = false;
    keep();
}

void PreferenceDesk::whenRead(std::function<void()> function) {
    if (isRead_) {
        function();
    } else {
        waiting_.push_back(std::move(function));
    }
}

void PreferenceDesk::put(std::function<void()> letter) {
    mailbox_.put([isThere = std::weak_ptr(isThere_), letter = std::move(letter)] {
        if (!isThere.expired()) {
            letter();
        }
    });
}

void PreferenceDesk::take(const std::optional<Preferences>& read) {
    isRead_ = true;
    isKnown_ = read.has_value();
    now_ = kept_ = read.value_or(Preferences{});
    if (!read) {
        onProblem(Problem::NotRead);
    }
    for (const auto& function : std::exchange(waiting_, {})) {
        function();
    }
}

void PreferenceDesk::change(const Preferences& preferences) {
    if (isRead_) {
        now_ = preferences;
        isKnown_ = true;
        keep();
    }
}

/// What changes while it is written is written after that, so that a disk gets no more than it takes.
void PreferenceDesk::keep() {
    if (isBeingKept_ || !folder_ || now_ == kept_) {
        return;
    }
    isBeingKept_ = true;
    kept_ = now_;
    thread_.post([this, preferences = now_] {
        bool isKept = true;
        try {
            writePreferences(preferenceFile(*folder_), preferences);
        } catch (const std::exception&) {
            isKept = false;
        }
        put([this, isKept] {
            isBeingKept_ = false;
            if (!isKept) {
                onProblem(Problem::NotKept);
            }
            keep();
        });
    });
}

} // namespace krl::desktop
