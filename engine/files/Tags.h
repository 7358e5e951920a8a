#pragma once

#include <string>

namespace vesk {

/// The title that an audio file says it has, UTF-8; empty when it has none or cannot be read.
std::string titleInTags(const std::string& path);

} // namespace vesk
