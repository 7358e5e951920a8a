/// Many trials, by several workers at once.
#pragma once

#include "torture/Counts.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace torture {

/// Which trials are made. Empty names stand for all.
struct Choice {
    std::string vesk; ///< the program that is tried
    std::string firmware;
    std::string job;
    std::string misfortunes;                  ///< one trial of each job, with these
    std::string kind;                         ///< as the table of kinds says it
    std::optional<std::chrono::seconds> time; ///< a sample that takes about that long
    bool twice = false; ///< each trial meets a second misfortune, drawn by the seed
    uint64_t seed = 1;  ///< of the order in which trials are made
    size_t part = 1;    ///< of `parts` equal ones
    size_t parts = 1;
    unsigned workers = 1;
};

/// What was found, by what it was found on. "all" is the sum.
struct Findings {
    std::map<std::string, Counts> byJob;  ///< "1.1.4 add"
    std::map<std::string, Counts> byKind; ///< "the power is cut"
    Counts all;
    size_t trials = 0;  ///< that were made; not every one meets its misfortune
    size_t planned = 0; ///< that there are, of the choice
};

/// Makes the trials in a folder of their own; what goes wrong is printed as it happens.
/// @throw std::runtime_error when a job fails without any misfortune
Findings carryOut(const Choice& choice, const std::filesystem::path& folder);

} // namespace torture
