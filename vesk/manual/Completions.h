#pragma once

#include "vesk/CommandParser.h"

#include <string>

namespace vesk {

// Scripts by which shells complete command lines of vesk: commands, options, files, folders, and the
// names of what is on the phone.

std::string bashCompletion(const CommandEntry& vesk);
std::string zshCompletion(const CommandEntry& vesk);
std::string fishCompletion(const CommandEntry& vesk);

} // namespace vesk
