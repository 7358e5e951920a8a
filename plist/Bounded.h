/// Property lists from outside, which libplist reads only once it is known that they are small.
///
/// A binary list of 173 bytes can name the same value so often that reading it takes gigabytes, and
/// libplist reads and frees nested values by recursion, so that a deep list of either form ends the
/// process. Both are counted here first, without recursion and without making anything.
#pragma once

#include <plist/plist.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace krl::plist {

inline constexpr size_t kMostBytes = size_t{1024} * 1024; ///< of a document
inline constexpr size_t kMostDepth = 512;
/// Without the keys of dictionaries, and one that is shared counts each time that it is met.
inline constexpr size_t kMostValues = 100'000;
/// Of texts and data in a binary list; a shared one counts each time as well.
inline constexpr size_t kMostContentBytes = 4 * kMostBytes;

struct Free {
    void operator()(plist_t node) const { plist_free(node); }
};

/// Owns a root node.
using Owned = std::unique_ptr<void, Free>;

/// Whether a document, binary or XML, keeps to the bounds. One that is no property list may: that
/// is for libplist to find. XML that could hide markup is refused: comments and declarations that
/// hold "<" or half a quotation, character data sections, attributes but those of "plist". Refused
/// are texts with a zero in them, too: libplist ends the process when it is asked for one.
bool isBounded(std::string_view document);

/// Reads a document, binary or XML; null when it is none, or goes beyond the bounds.
Owned readBounded(std::string_view document);

} // namespace krl::plist
