#pragma once

#include "confined/ConfinedProcess.h"

#include <filesystem>
#include <optional>
#include <string>

namespace krl::engine {

/// The program vesk-tags, which stands beside the library or in the folder KRLVesk there, as the
/// device layer does. Empty when it does not.
std::filesystem::path tagProgram();

/// vesk-tags at work: a process with little memory and time that may not write, so that a malformed
/// file ends it and not this one. One process answers for many files; it starts with the first one,
/// and anew after one that has ended it.
class TagProcess {
public:
    explicit TagProcess(std::filesystem::path program) : program_(std::move(program)) {}

    /// Asks about an open file.
    /// @return nothing when the process has ended over it, or took longer than ten seconds
    /// @throw Failure when the program is missing or does not start
    std::optional<std::string> ask(const std::string& question, int file, size_t longestAnswer);

    /// Ends the process: it has said something that cannot be so.
    void end() { process_.reset(); }

private:
    confined::ConfinedProcess& started();

    std::filesystem::path program_;
    std::optional<confined::ConfinedProcess> process_;
};

} // namespace krl::engine
