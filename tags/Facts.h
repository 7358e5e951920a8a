#pragma once

#include "tags/AudioFacts.h"

#include <string>

namespace TagLib {
class IOStream;
}

namespace krl::tags {

/// What an audio file says of itself; nothing of one that is not known as such. The content decides
/// what it is, and the stream's name only where the content leaves it open. A malformed file may end
/// the process: TagLib descends into nested parts without a bound.
AudioFacts factsOf(TagLib::IOStream& file);

/// The same of an open file, which is closed then.
AudioFacts factsOf(const std::string& fileName, int descriptor);

} // namespace krl::tags
