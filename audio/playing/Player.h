#pragma once

#include "audio/playing/PlayState.h"
#include "confined/ConfinedProcess.h"

#include <filesystem>
#include <string>

namespace krl::audio {

/// The program vesk-play, which plays files and stands beside vesk-tags. Empty when it does not.
std::filesystem::path playProgram();

/// Plays one open file from its beginning, in a process of its own that a malformed file may end, and
/// that knows GStreamer. Ends with its holder, wherever the file is then.
class Player {
public:
    /// Begins to play.
    /// @param path        of the file, for what is said of it
    /// @param descriptor  lent; the file is read from its beginning and need have no name any more
    /// @param sink        where the sound is to go, in GStreamer's words; empty: where the desktop's goes
    /// @throw Failure when the program is missing or does not start
    Player(std::filesystem::path path, int descriptor, const std::string& sink,
           const std::filesystem::path& program = playProgram());

    /// Waits for the next news, a moment at most, and says how far it is.
    /// @throw Failure when it cannot be played
    PlayState next();

private:
    PlayState ask(const std::string& question, std::span<const int> files);

    std::filesystem::path path_;
    confined::ConfinedProcess process_;
    PlayState first_;
    bool isFirst_ = true;
};

} // namespace krl::audio
