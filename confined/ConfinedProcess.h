#pragma once

#include "confined/OpenFile.h"
#include "confined/Packets.h"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>

namespace krl::confined {

/// A program of ours that reads untrusted files for this one: it begins with a packet socket as its
/// standard input, nowhere to write, no other descriptor, and no signal ignored or held back. A
/// process group of its own keeps it from a Ctrl-C that this program survives. It is ended with its
/// holder, busy or not: it has nothing to lose.
class ConfinedProcess {
public:
    /// @throw std::system_error when it cannot be started
    explicit ConfinedProcess(const std::filesystem::path& program);
    ~ConfinedProcess();

    ConfinedProcess(const ConfinedProcess&) = delete;
    ConfinedProcess& operator=(const ConfinedProcess&) = delete;

    /// Sends a question with open files, which are lent.
    /// @param stop  ends the wait; nothing more can be asked then
    /// @return the answer; none when the process has ended first or does not answer in time
    std::optional<std::string> ask(std::string_view question, std::span<const int> files,
                                   size_t longestAnswer, std::chrono::milliseconds longest,
                                   const std::stop_token& stop = {});

private:
    OpenFile socket_;
    pid_t process_ = -1;
};

} // namespace krl::confined
