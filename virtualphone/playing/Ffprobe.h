/// The program ffprobe, which says what a file is.
#pragma once

#include <optional>
#include <string>

namespace virtualphone {

/// Throws std::runtime_error when there is no such program.
void requireFfprobe();

/// What ffprobe says of an open file: a JSON document with "format", "streams" and the first few
/// "packets", which are missing in part or altogether for what it cannot read. The file's name is
/// not told to it. None when it has not done with the file after 30 seconds.
///
/// Throws std::runtime_error when there is no such program.
std::optional<std::string> ffprobe(int file);

} // namespace virtualphone
