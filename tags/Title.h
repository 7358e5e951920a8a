#pragma once

#include <string>

namespace TagLib {
class IOStream;
}

namespace krl::tags {

/// The title that an audio file says it has, UTF-8; empty when it has none. A malformed file may
/// end the process: TagLib descends into nested parts without a bound.
std::string titleIn(TagLib::IOStream& file);

/// The same of an open file, which is closed then. Its name's extension says how to read it.
std::string titleIn(const std::string& fileName, int descriptor);

} // namespace krl::tags
