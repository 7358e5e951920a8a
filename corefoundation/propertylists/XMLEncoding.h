/// The encodings of XML documents. Internal.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace krl::cf {

/// A document in UTF-8: the bytes that were given, or a converted copy of them.
class Utf8Document {
public:
    static Utf8Document borrowing(std::string_view text) { return Utf8Document(text, {}); }

    static Utf8Document owning(std::string text) { return Utf8Document({}, std::move(text)); }

    std::string_view text() const { return owned_.empty() ? borrowed_ : owned_; }

private:
    Utf8Document(std::string_view borrowed, std::string owned)
        : borrowed_(borrowed), owned_(std::move(owned)) {}

    std::string_view borrowed_;
    std::string owned_;
};

/// Finds out a document's encoding and converts it. A byte order mark (UTF-8, UTF-16, UTF-32)
/// decides; then the declaration, which may name UTF-8, US-ASCII (read as ISO-8859-1), one of the
/// ISO-8859 (also as latin1 and the like) and one of the windows-125x encodings; a document without
/// either is UTF-8.
/// @return none when the declared encoding is another, or the bytes do not belong to the encoding.
///         UTF-8 is not checked.
std::optional<Utf8Document> convertToUtf8(std::string_view bytes);

} // namespace krl::cf
