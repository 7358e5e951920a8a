#pragma once

#include "tags/AudioFacts.h"

#include <filesystem>
#include <optional>

namespace krl::audio {

/// The program vesk-prepare, which decodes songs and stands beside vesk-tags. Empty when it does not.
std::filesystem::path prepareProgram();

/// What vesk-prepare is told to be asked for facts, not for a ringtone.
inline constexpr char kForFacts[] = "facts";

/// What an open song says of itself to who decodes it: kinds of files that vesk-tags does not know.
/// Asked in a process of its own, which a malformed song may end.
/// @return nothing when it cannot be decoded, or the program is missing
std::optional<tags::AudioFacts>
decoderFacts(int descriptor, const std::filesystem::path& program = prepareProgram());

} // namespace krl::audio
