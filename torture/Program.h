/// vesk as a process with an end.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace torture {

struct Ended {
    int code = 0;       ///< exit status
    int signal = 0;     ///< that ended it, or 0
    bool hung = false;  ///< did not end in time, and was killed
    std::string output; ///< standard output and error
};

/// Runs vesk to its end; after a minute it counts as hung.
/// @param meanwhile  called once it runs, with its process number
Ended runVesk(const std::vector<std::string>& arguments,
              const std::map<std::string, std::string>& environment,
              const std::function<void(int process)>& meanwhile = {});

} // namespace torture
