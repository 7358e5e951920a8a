/// Signals, a child process and lines of standard input, watched by one thread.
#pragma once

#include <csignal>
#include <functional>
#include <string>
#include <vector>

namespace virtualphone {

/// Blocks the signals that the runner takes. Made before any other thread, so that all inherit it.
class SignalMask {
public:
    SignalMask();

    const sigset_t& taken() const { return taken_; }

    const sigset_t& original() const { return original_; }

private:
    sigset_t taken_;
    sigset_t original_;
};

struct RunnerSetup {
    /// Program and arguments; empty: nothing is run.
    std::vector<std::string> command;

    /// NAME=VALUE, put into the command's environment.
    std::string environmentName;
    std::string environmentValue;

    /// Called with each line of standard input; the command then reads nothing. Empty: not read.
    std::function<void(const std::string& line)> onLine;
};

/// Runs until the command ends, or without one until SIGINT, SIGTERM or SIGHUP comes or onLine gets
/// "quit". Those signals, and quit as SIGTERM, are handed on to a command that runs.
///
/// @return the command's exit status, 128 and the signal's number when one killed it, 126 or 127
/// when it could not be run; 0 without a command.
int runUntilTheEnd(const SignalMask& mask, const RunnerSetup& setup);

} // namespace virtualphone
