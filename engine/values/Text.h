#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace krl::engine {

/// Text as code points; bytes that are no UTF-8 become U+FFFD, one each.
std::u32string codePoints(std::string_view utf8);

/// Code points as UTF-8; what is no character becomes U+FFFD.
std::string utf8(std::u32string_view text);

/// Whether the bytes are well-formed UTF-8.
bool isUtf8(std::string_view bytes);

/// The same text in normal form C, in which an e with an accent is one character and not two: texts
/// that look alike are equal in it. What is no UTF-8 or longer than 4 KiB stays as it is.
std::string composed(std::string_view utf8);

/// The same without a difference between letters in upper and lower case: two texts are equal in it
/// that only differ in that, or look alike.
std::string caseless(std::string_view utf8);

/// Whether a terminal might act on a character, or show text in another order because of it, or
/// shows nothing for it: control characters, bidirectional controls, line separators, tags, fillers
/// and other invisible marks. Joiners, which emoji and scripts need, are not among them.
bool isUnsafe(char32_t character);

/// Text for a terminal: unsafe characters, and joiners and variation selectors that have nothing to
/// act on, as \x1b, \u202e or \U000e0041, all else as it is.
std::string forTerminal(std::string_view utf8);

/// A JSON text with the same characters as JSON escapes.
std::string jsonForTerminal(std::string_view json);

/// Columns that text takes on a terminal.
size_t displayWidth(std::string_view utf8);

/// The first part of text that fits in so many columns; an ellipsis ends it when it was cut.
std::string fitted(std::string_view utf8, size_t columns);

/// Text filled up with spaces to so many columns.
std::string padded(std::string_view utf8, size_t columns);

/// "0 B", "999 B", "1.0 KiB", "12.5 MiB".
std::string formatBytes(uint64_t bytes);

/// "0:07", "12:34", "1:02:03".
std::string formatDuration(double seconds);

/// "1 ringtone", "3 ringtones"; the plural has an s more unless it is given.
std::string counted(size_t count, std::string_view singular, std::string_view plural = {});

/// "A, B and C", each in quotation marks, shortened to "A, B and 7 more" beyond limit.
std::string quotedList(const std::vector<std::string>& names, size_t limit = 8);

/// Those of the candidates that a person may have meant, the closest first, three at most.
std::vector<std::string> closeNames(std::string_view wanted,
                                    const std::vector<std::string>& candidates);

} // namespace krl::engine
