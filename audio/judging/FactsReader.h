#pragma once

#include "confined/ConfinedProcess.h"
#include "engine/files/TagReader.h"
#include "tags/AudioFacts.h"

#include <filesystem>
#include <optional>

namespace krl::audio {

/// Reads what audio files say of themselves, in the process vesk-tags: a malformed file ends that
/// process, not this one. One process reads many files; it starts with the first one, and anew
/// after one that has ended it.
class FactsReader {
public:
    explicit FactsReader(std::filesystem::path program = engine::tagProgram());

    /// @return nothing when the file cannot be read: it ended the process, or took too long
    /// @throw Failure when the program is missing or does not start
    std::optional<tags::AudioFacts> factsOf(const std::filesystem::path& file, int descriptor);

private:
    confined::ConfinedProcess& process();

    std::filesystem::path program_;
    std::optional<confined::ConfinedProcess> process_;
};

} // namespace krl::audio
