/// Programs as a test runs them: with pipes, a limit on every wait, and no process left behind.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace virtualphone::testing {

class Process {
public:
    /// Starts a program, found in PATH; standard error goes to standard output.
    explicit Process(const std::vector<std::string>& command);

    /// Ends what still runs.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void writeLine(const std::string& line) const;
    void closeInput();

    /// The next line without its end; none at the end of the output. Throws after two minutes.
    std::optional<std::string> readLine();

    /// Reads until a line contains this; false when the output ends before.
    bool readUntil(const std::string& part);

    /// All output that is left.
    std::string readAll();

    void signal(int number) const;

    /// Waits for the end: the exit status, or 128 and the number of the signal that ended it.
    int wait();

private:
    bool fill();

    pid_t child_ = 0;
    int input_ = -1;
    int output_ = -1;
    std::string buffer_;
};

struct Outcome {
    int status;
    std::string output;
};

/// Runs a program to its end.
Outcome run(const std::vector<std::string>& command);

/// Whether PATH has such a program.
bool isInstalled(const std::string& program);

} // namespace virtualphone::testing
