#pragma once

#include "engine/files/TagProcess.h"
#include "tags/AudioFacts.h"

#include <filesystem>
#include <optional>

namespace krl::audio {

/// Reads what audio files say of themselves, in a process of its own.
class FactsReader {
public:
    explicit FactsReader(std::filesystem::path program = engine::tagProgram())
        : process_(std::move(program)) {}

    /// @return nothing when the file cannot be read: it ended the process, or took too long
    /// @throw Failure when the program is missing or does not start
    std::optional<tags::AudioFacts> factsOf(const std::filesystem::path& file, int descriptor);

private:
    engine::TagProcess process_;
};

} // namespace krl::audio
