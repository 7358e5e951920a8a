#pragma once

#include "vesk/terminal/Output.h"

#include <string>

namespace vesk {

/// For those who only look at the phone.
inline constexpr char kNextPutsItRight[] = "the next command that writes puts it right first";

/// For a dry run.
inline constexpr char kPlanIsOfPhoneAsItIs[] =
    "it would be put right first, and what is shown is worked out for the phone as it is now";

/// Says that a job on this phone was broken off, where the safe knows of one, and what of it.
/// @param consequence  the end of the sentence
void noteUnfinishedJob(const std::string& udid, const std::string& consequence, Output& output);

} // namespace vesk
