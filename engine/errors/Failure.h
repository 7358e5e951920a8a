#pragma once

#include "vesk/invocation/ExitCodes.h"

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vesk {

/// Why a command stops: what happened, on which phone or file; what to do next; and, one a line,
/// the phones or names that it is about. Holds names as they are: whoever shows them makes them
/// safe.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode code, const std::string& message, std::string hint = {},
            std::vector<std::string> details = {})
        : std::runtime_error(message), code_(code), hint_(std::move(hint)),
          details_(std::move(details)) {}

    ExitCode code() const { return code_; }

    const std::string& hint() const { return hint_; }

    const std::vector<std::string>& details() const { return details_; }

private:
    ExitCode code_;
    std::string hint_;
    std::vector<std::string> details_;
};

} // namespace vesk
