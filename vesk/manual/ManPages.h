#pragma once

#include "vesk/CommandParser.h"

#include <map>
#include <string>

namespace vesk {

/// The manual pages of section 1, in the words of "man": file names to contents. One of vesk, and one
/// of each of its commands.
std::map<std::string, std::string> manPages(const CommandEntry& vesk);

} // namespace vesk
