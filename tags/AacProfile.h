#pragma once

#include <string>
#include <string_view>

namespace krl::tags {

struct StreamFacts {
    std::string codec; ///< one of codec's names for AAC and MP3, or kUnknown
    int channels = 0;  ///< 0: it does not say
};

/// What an elementary stream descriptor of an MPEG-4 file ("esds", from behind its size and name)
/// says. HE-AAC shows here when the stream says so; a stream may also bear it unsaid.
StreamFacts factsOfStream(std::string_view descriptor);

} // namespace krl::tags
