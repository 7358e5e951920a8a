#pragma once

#include <string>

namespace krl::engine {

// Which phones were paired when a person last worked on them, kept from one run to the next: when
// one of them is not paired any more, another program has ended the pairing. A failure to keep or to
// read this is no failure of the run; the phone then counts as one that was never paired.

bool wasPaired(const std::string& udid);

void rememberPaired(const std::string& udid);

/// The person has ended the pairing.
void forgetPaired(const std::string& udid);

} // namespace krl::engine
