#pragma once

#include "engine/errors/Failure.h"
#include "tags/AudioFacts.h"

#include <filesystem>
#include <string>
#include <vector>

namespace krl::audio {

enum class Verdict {
    Plays,                ///< as it is, on every early firmware
    PlaysOnOlderFirmware, ///< as it is through 1.1.2; later firmware wants it prepared
    WantsPreparing,
    CannotBeUsed
};

/// The verdict's name in JSON: "plays", "plays-on-older-firmware", "wants-preparing", "cannot-be-used".
const char* verdictName(Verdict verdict);

/// Whether a file plays as a ringtone, and if not, why: each reason a sentence about "it", without
/// its full stop.
struct Judgement {
    Verdict verdict = Verdict::CannotBeUsed;
    std::vector<std::string> reasons;
};

/// Why no ringtone can be made of a song that cannot be used.
engine::Failure cannotBeUsed(const std::filesystem::path& song, const Judgement& judgement);

/// @param extension of the file's name, in lower case without the point
Judgement judge(const tags::AudioFacts& facts, const std::string& extension);

} // namespace krl::audio
