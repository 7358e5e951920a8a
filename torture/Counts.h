/// What was found, counted over many trials.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace torture {

struct Counts {
    uint64_t faults = 0;       ///< that were met
    uint64_t falseSuccess = 0; ///< exit code 0 and the phone is not as wanted
    uint64_t lost = 0;         ///< ringtones that should be there after the plain run and are not
    uint64_t overwritten = 0;  ///< ringtones with another sound then
    uint64_t unlisted = 0;     ///< files with sound that no catalogue has then
    uint64_t notFinished = 0;  ///< plain runs that did not bring what was wanted
    uint64_t foreign = 0;      ///< files outside of the ringtones, or phones, that were touched
    uint64_t notUndone = 0;    ///< phones that undo did not bring back byte for byte
    uint64_t hangs = 0;
    uint64_t crashes = 0;
    uint64_t leaked = 0; ///< descriptors, or connections to the phone, left open

    std::chrono::milliseconds longestRun{0};

    Counts& operator+=(const Counts& other);
    bool isClean() const;
};

/// The names of the columns and their values, in one order.
std::vector<std::pair<std::string, uint64_t>> columns(const Counts& counts);

} // namespace torture
