#pragma once

#include "engine/files/TagProcess.h"

#include <filesystem>
#include <optional>
#include <string>

namespace krl::engine {

/// Reads titles from the tags of audio files, in a process of its own.
class TagReader {
public:
    explicit TagReader(std::filesystem::path program = tagProgram())
        : process_(std::move(program)) {}

    /// The title that an open file says it has; empty when it has none, nothing when it cannot be
    /// read: it ended the process, or took longer than ten seconds.
    /// @throw Failure when the program is missing or does not start
    std::optional<std::string> titleOf(const std::filesystem::path& file, int descriptor);

private:
    TagProcess process_;
};

} // namespace krl::engine
