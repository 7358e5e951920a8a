/// A program as a process with an end.
#pragma once

#include "virtualphone/wire/UniqueFd.h"

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace torture {

struct Ended {
    int code = 0;       ///< exit status
    int signal = 0;     ///< that ended it, or 0
    bool hung = false;  ///< did not end in time, and was killed
    std::string output; ///< standard output and error
    std::chrono::milliseconds took{0};

    /// It says that all was done.
    bool claimsSuccess() const { return code == 0 && signal == 0 && !hung; }
};

class Program {
public:
    /// @param command  the program and its arguments
    Program(std::vector<std::string> command,
            const std::map<std::string, std::string>& environment);
    /// Kills it if it still runs.
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void signal(int number) const;

    bool hasEnded() const;

    /// Waits for the end; after two minutes it counts as hung. The last call to an object.
    Ended wait();

private:
    bool readAll(std::string& output) const;

    std::chrono::steady_clock::time_point start_;
    virtualphone::UniqueFd output_;
    pid_t number_ = 0;
};

} // namespace torture
