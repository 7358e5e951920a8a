/// The tags and texts of an XML property list, one after the other. Internal.
///
/// A parser of our own, because the platform's reading differs from XML's in places where catalogues
/// depend on it: line ends in texts stay as they are, control characters are read, whatever follows
/// the root element is passed over. CFPropertyList.h lists all of them.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <cstddef>
#include <string>
#include <string_view>

namespace krl::cf {

enum class Element { Plist, Dict, Array, String, Key, Data, Date, Integer, Real, True, False };

struct Tag {
    Element element;
    bool isEmpty; ///< as <true/>
};

/// Moves through a document. The functions that return bool leave the place behind what they have
/// read; on false the error is noted, and the place is of no use any more.
class XMLScanner {
public:
    /// @param document  in UTF-8, without a byte order mark; outlives the scanner.
    explicit XMLScanner(std::string_view document)
        : start_(document.data()), at_(start_), end_(start_ + document.size()) {}

    /// Skips what stands before the root element.
    bool skipProlog();

    /// Skips what may stand between elements: white space, comments and processing instructions.
    bool skipBetween();

    bool isAtCloseTag() const { return startsWith("</"); }

    bool readOpenTag(Tag& tag);

    bool readCloseTag(Element element);

    /// Reads a text with character references and CDATA sections in it, up to the close tag. Whether
    /// it is valid UTF-8 is not looked at.
    /// @param text  good until the next call.
    bool readText(std::string_view& text);

    /// Reads up to the next tag, whatever it is, as it stands.
    std::string_view readPlain();

    /// Notes an error, with the line. @return false.
    bool fail(std::string_view reason);

    const std::string& error() const { return error_; }

private:
    bool startsWith(std::string_view expected) const { return rest().starts_with(expected); }

    std::string_view rest() const { return {at_, static_cast<size_t>(end_ - at_)}; }

    /// Where a character stands next, or the end.
    const char* find(char character) const;

    void skipSpace();
    bool skipName(std::string_view& name);
    bool skipThrough(std::string_view end);
    bool skipComment();
    bool skipInstruction();
    bool skipDocumentType();
    bool skipQuoted(std::string_view& content);
    bool skipAttributes();
    bool skipAttributeValue();
    bool readReference(UTF32Char& codePoint);
    bool decodeText(std::string_view& text);
    bool decodeSection();
    bool decodeReference();

    const char* start_;
    const char* at_;
    const char* end_;
    bool inProlog_ = false;
    std::string decoded_; ///< of one text, kept for its memory
    std::string error_;
};

} // namespace krl::cf
