#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>

namespace krl::engine {

/// The program vesk-tags, which stands beside the library or in the folder KRLVesk there, as the
/// device layer does. Empty when it does not.
std::filesystem::path tagProgram();

/// Reads titles from the tags of audio files, in a process of its own that has little memory and
/// time and may not write: a malformed file ends that process, not this one. One process reads many
/// files; it starts with the first one, and anew after one that has ended it.
class TagReader {
public:
    explicit TagReader(std::filesystem::path program = tagProgram());
    ~TagReader();

    TagReader(const TagReader&) = delete;
    TagReader& operator=(const TagReader&) = delete;

    /// The title that an open file says it has; empty when it has none, nothing when it cannot be
    /// read: it ended the process, or took longer than ten seconds.
    /// @throw Failure when the program is missing or does not start
    std::optional<std::string> titleOf(const std::filesystem::path& file, int descriptor);

private:
    void start();
    void stop();
    bool answersInTime() const;

    std::filesystem::path program_;
    pid_t process_ = -1;
    int socket_ = -1; ///< -1: no process
};

} // namespace krl::engine
