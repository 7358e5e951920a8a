#pragma once

#include <string>
#include <vector>

namespace krl::system {

/// The programs of this computer.
struct Programs {
    /// Whether there is a file at a path.
    bool (*isThere)(const std::string& path);

    /// Starts the program at a path, without a shell or a search for it, with exactly these
    /// arguments after its name and this process's environment and standard streams, and waits
    /// until it exits. Signals are as a new process expects them, whatever this process does with
    /// them.
    ///
    /// @return its exit status; 128 and the signal's number when a signal ended it; -1 when it
    /// could not be started, or when nobody can tell how it ended
    int (*run)(const std::string& path, const std::vector<std::string>& arguments);
};

/// The programs in force.
const Programs& programs();

/// Puts others in their place, so that a test can watch what is run, or take a program away. Not to
/// be called while another thread uses them. Returns those that were in force.
Programs setPrograms(const Programs& programs);

} // namespace krl::system
