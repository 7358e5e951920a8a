#pragma once

#include "audio/judging/PlayedFormats.h"
#include "audio/preparing/Wish.h"
#include "desktop/bridge/Mirror.h"

#include <cstddef>
#include <map>
#include <string>

namespace krl::desktop {

/// What a person has chosen once for all.
struct Preferences {
    static constexpr int kFewestSeconds = 5;
    static constexpr int kMostSeconds = audio::kLongestRingtoneSeconds;
    static constexpr size_t kMostSyncs = 100;

    bool levels = true;   ///< new ringtones are made as loud as the others
    int seconds = 30;     ///< that they are long
    size_t keptSyncs = 5; ///< of each phone, that can be undone; at least one

    std::map<std::string, Mirror> mirrors; ///< by the phones' UDIDs

    /// How a song becomes a ringtone unless the person says otherwise.
    audio::Wish wish() const {
        return {.lengthSeconds = static_cast<double>(seconds), .level = levels};
    }

    friend bool operator==(const Preferences&, const Preferences&) = default;
};

} // namespace krl::desktop
