#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>

namespace vesk {

/// Whether a stream is a terminal that can move its cursor.
bool terminalUnderstandsEscapes(std::FILE* stream);

/// False when the user has set NO_COLOR to anything.
bool coloursWanted();

/// The terminal's columns as they are now; 80 when it does not say.
size_t terminalColumns(std::FILE* stream);

/// Writes text and does not look at whether it arrived; errors stay noted on the stream.
void writeText(std::FILE* stream, std::string_view text);

} // namespace vesk
