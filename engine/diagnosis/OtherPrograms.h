#pragma once

#include <string>
#include <vector>

namespace krl::engine {

/// A program that runs beside us.
struct RunningProgram {
    std::string name;
    int process = 0;
};

/// Programs that are known to end the pairings of phones with firmware 1.x, of those that run now.
std::vector<RunningProgram> programsThatUnpair();

} // namespace krl::engine
