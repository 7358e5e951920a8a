#pragma once

#include <string>

namespace TagLib {
class File;
class String;
} // namespace TagLib

namespace krl::tags {

std::string utf8Of(const TagLib::String& text);

/// A text of a file's tags, UTF-8.
/// @param inTag     what its tag says
/// @param property  where it stands otherwise: a wave file's own list of texts is not in its tag
std::string textOf(TagLib::File& file, const TagLib::String& inTag, const char* property);

} // namespace krl::tags
