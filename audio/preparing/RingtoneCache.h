#pragma once

#include "audio/preparing/PrepareProgram.h"
#include "engine/values/Digest.h"

#include <filesystem>
#include <optional>

namespace krl::audio {

/// Keeps ringtones that were made, by what they were made of and how, so that the same wish of the
/// same song is not worked out twice. What does not fit is forgotten, the longest unused first. A
/// cache that cannot be written to or is damaged keeps nothing, and is no failure.
class RingtoneCache {
public:
    /// @param folder empty: nothing is kept
    explicit RingtoneCache(std::filesystem::path folder = defaultFolder());

    /// "krlvesk/ringtones" in $XDG_CACHE_HOME, or else in ~/.cache.
    static std::filesystem::path defaultFolder();

    std::optional<Ringtone> find(const engine::Digest& song, const Wish& wish) const;

    void keep(const engine::Digest& song, const Wish& wish, const Ringtone& ringtone) const;

private:
    std::filesystem::path placeOf(const engine::Digest& song, const Wish& wish) const;

    void forgetOldest() const;

    std::filesystem::path folder_;
};

} // namespace krl::audio
