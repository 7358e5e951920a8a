/// Between an XML property list and libplist. Internal.
///
/// libplist reads what everybody writes, but takes much for well-formed that is not, and reads some
/// rare forms in its own way (an octal for 010, a comma for a point in some locales). So every
/// document is checked here first, and the places that libplist would misread are put into the
/// common form.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <string>
#include <string_view>
#include <vector>

namespace krl::cf {

/// How many elements may stand inside each other.
constexpr int kDepthLimit = 512;

/// Values that libplist cannot hold (a text with a zero inside, a date of another millennium). In
/// the document a key or string stands in their place: a mark that nobody could foresee, and an
/// index.
class Placeholders {
public:
    /// @return the text to stand in for the value.
    std::string add(CFRef<CFTypeRef> value);
    /// The value that a text stands for, or null when it is an ordinary text.
    CFTypeRef find(std::string_view text) const;

private:
    std::string mark_;
    std::vector<CFRef<CFTypeRef>> values_;
};

/// The outcome of checking a document.
struct CheckedDocument {
    std::string error; ///< why it is not well-formed; empty when it is
    std::string mended;
    std::string_view unchanged; ///< instead of mended, part of the document itself
    Placeholders placeholders;

    std::string_view text() const { return mended.empty() ? unchanged : mended; }
};

/// @param document  in UTF-8 and without a byte order mark; must outlive the result.
CheckedDocument checkDocument(std::string_view document);

} // namespace krl::cf
