#pragma once

namespace krl::engine {

/// For as long as one lives, what this process writes to standard error goes nowhere.
class MutedStandardError {
public:
    MutedStandardError();
    ~MutedStandardError();
    MutedStandardError(const MutedStandardError&) = delete;
    MutedStandardError& operator=(const MutedStandardError&) = delete;
};

} // namespace krl::engine
