#include "corefoundation/propertylists/XMLDocument.h"

#include "corefoundation/propertylists/Base64.h"
#include "corefoundation/values/CFStringInternal.h"
#include "corefoundation/values/GregorianDate.h"
#include "corefoundation/values/Utf8.h"

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFUUID.h>
#include <algorithm>
#include <charconv>
#include <optional>

namespace krl::cf {

std::string Placeholders::add(CFRef<CFTypeRef> value) {
    if (mark_.empty()) {
        auto uuid = adopt(CFUUIDCreate(nullptr));
        auto text = adopt(CFUUIDCreateString(nullptr, uuid.get()));
        mark_ = CFStringGetCStringPtr(text.get(), kCFStringEncodingASCII);
    }
    values_.push_back(std::move(value));
    return mark_ + std::to_string(values_.size() - 1);
}

CFTypeRef Placeholders::find(std::string_view text) const {
    if (mark_.empty() || !text.starts_with(mark_)) {
        return nullptr;
    }
    size_t index = 0;
    std::from_chars(text.data() + mark_.size(), text.data() + text.size(), index);
    return index < values_.size() ? values_[index].get() : nullptr;
}

namespace {

using namespace std::string_view_literals;

enum class Element { Plist, Dict, Array, String, Key, Data, Date, Integer, Real, True, False };

struct ElementName {
    std::string_view name;
    Element element;
};

constexpr ElementName kElements[] = {
    {"key", Element::Key},     {"string", Element::String},   {"dict", Element::Dict},
    {"array", Element::Array}, {"integer", Element::Integer}, {"true", Element::True},
    {"false", Element::False}, {"real", Element::Real},       {"date", Element::Date},
    {"data", Element::Data},   {"plist", Element::Plist},
};

std::string_view nameOf(Element element) {
    return std::find_if(std::begin(kElements), std::end(kElements),
                        [&](const ElementName& entry) { return entry.element == element; })
        ->name;
}

bool isSpace(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

std::string_view withoutLeadingSpace(std::string_view text) {
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

bool isValidUtf8(std::string_view text) {
    return utf16LengthOfUtf8(reinterpret_cast<const UInt8*>(text.data()),
                             static_cast<CFIndex>(text.size())) != kCFNotFound;
}

// ---------------------------------------------------------------------------- values

/// White space, a sign, white space, decimal or hexadecimal digits and nothing else. @return the
/// number in plain decimal form, none when it is not within -2^63 to 2^64 - 1.
std::optional<std::string> normalInteger(std::string_view text) {
    text = withoutLeadingSpace(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text = withoutLeadingSpace(text.substr(1));
    }
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) {
        text.remove_prefix(2);
    }
    uint64_t magnitude = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), magnitude, hexadecimal ? 16 : 10);
    constexpr uint64_t kLargestNegative = uint64_t{1} << 63;
    if (error != std::errc() || end != text.data() + text.size() ||
        (negative && magnitude > kLargestNegative)) {
        return std::nullopt;
    }
    return (negative && magnitude != 0 ? "-" : "") + std::to_string(magnitude);
}

std::string_view skipDigits(std::string_view text) {
    while (!text.empty() && isDigit(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

bool equalsIgnoringCase(std::string_view text, std::string_view lowercase) {
    return std::equal(text.begin(), text.end(), lowercase.begin(), lowercase.end(),
                      [](char a, char b) { return (a | 0x20) == b; });
}

/// White space, then a decimal number as everybody writes it, a nan or an infinity, and nothing
/// else.
bool isReal(std::string_view text) {
    text = withoutLeadingSpace(text);
    if (text.starts_with('-') || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    for (const auto word : {"nan"sv, "inf"sv, "infinity"sv}) {
        if (equalsIgnoringCase(text, word)) {
            return true;
        }
    }
    const std::string_view number = text;
    text = skipDigits(text);
    size_t digits = number.size() - text.size();
    if (text.starts_with('.')) {
        const std::string_view fraction = text.substr(1);
        text = skipDigits(fraction);
        digits += fraction.size() - text.size();
    }
    if (digits == 0 || text.empty()) {
        return digits > 0;
    }
    if (text.front() != 'e' && text.front() != 'E') {
        return false;
    }
    text.remove_prefix(1);
    if (text.starts_with('-') || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    return !text.empty() && skipDigits(text).empty();
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += character;
        }
    }
    return result;
}

/// Reads the number of a reference such as "#65" or "#x41".
std::optional<UTF32Char> numberedCharacter(std::string_view reference) {
    constexpr size_t kMostDigits = 8;
    reference.remove_prefix(1);
    const bool hexadecimal = reference.starts_with('x');
    if (hexadecimal) {
        reference.remove_prefix(1);
    }
    uint64_t value = 0;
    const char* last = reference.data() + reference.size();
    const auto [end, error] = std::from_chars(reference.data(), last, value, hexadecimal ? 16 : 10);
    const bool surrogate = value >= 0xD800 && value < 0xE000;
    if (error != std::errc() || end != last || reference.size() > kMostDigits || surrogate ||
        value > 0x10FFFF) {
        return std::nullopt;
    }
    return static_cast<UTF32Char>(value);
}

/// The character that a reference without its "&" and ";" stands for.
std::optional<UTF32Char> referencedCharacter(std::string_view reference) {
    struct Named {
        std::string_view name;
        char character;
    };

    constexpr Named kNamed[] = {
        {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"apos", '\''}, {"quot", '"'}};
    for (const Named& named : kNamed) {
        if (reference == named.name) {
            return static_cast<UTF32Char>(named.character);
        }
    }
    return reference.starts_with('#') ? numberedCharacter(reference) : std::nullopt;
}

// ---------------------------------------------------------------------------- the document

class Checker {
public:
    explicit Checker(std::string_view text) : text_(text) {}

    CheckedDocument check() {
        if (text_.empty()) {
            fail("it is empty");
        } else if (skipProlog()) {
            checkRoot();
        }
        return std::move(result_);
    }

private:
    struct Tag {
        Element element;
        bool isEmpty; ///< as <true/>
        size_t start;
        size_t end;
    };

    // Each of the functions below leaves at_ after what it has read, and returns false, with the
    // error noted, when it is not there.

    bool fail(std::string_view reason) {
        const auto line =
            std::count(text_.begin(), text_.begin() + static_cast<ptrdiff_t>(at_), '\n');
        result_.error = std::string(reason) + ", at line " + std::to_string(line + 1);
        return false;
    }

    bool startsWith(std::string_view expected) const {
        return text_.substr(at_).starts_with(expected);
    }

    /// Puts other text in place of a part that lies after all those replaced before.
    void replace(size_t from, size_t to, std::string_view replacement) {
        result_.mended += text_.substr(copiedTo_, from - copiedTo_);
        result_.mended += replacement;
        copiedTo_ = to;
    }

    /// Moves behind the next occurrence of an end mark.
    bool skipThrough(std::string_view end) {
        const size_t found = text_.find(end, at_);
        if (found == std::string_view::npos) {
            return fail("it ends too early");
        }
        at_ = found + end.size();
        return true;
    }

    /// Skips what may stand between elements: white space, comments and processing instructions.
    bool skipBetween() {
        for (;;) {
            while (at_ < text_.size() && isSpace(text_[at_])) {
                ++at_;
            }
            if (startsWith("<!--")) {
                at_ += 4;
                if (!skipThrough("-->")) {
                    return false;
                }
            } else if (startsWith("<?")) {
                if (!skipThrough("?>")) {
                    return false;
                }
            } else {
                return true;
            }
        }
    }

    bool skipProlog() {
        for (;;) {
            if (!skipBetween()) {
                return false;
            }
            if (!startsWith("<!DOCTYPE")) {
                return true;
            }
            const size_t end = text_.find_first_of("[>", at_);
            if (end == std::string_view::npos || text_[end] == '[') {
                return fail("its document type is not plain");
            }
            at_ = end + 1;
        }
    }

    bool readOpenTag(Tag& tag) {
        if (!startsWith("<")) {
            return fail(at_ < text_.size() ? "text stands between elements" : "it ends too early");
        }
        tag.start = at_;
        const size_t close = text_.find('>', at_);
        if (close == std::string_view::npos) {
            return fail("it ends too early");
        }
        tag.end = close + 1;
        std::string_view inside = text_.substr(at_ + 1, close - at_ - 1);
        tag.isEmpty = inside.ends_with('/');
        if (tag.isEmpty) {
            inside.remove_suffix(1);
        }
        const auto nameEnd = std::find_if(inside.begin(), inside.end(), isSpace);
        const std::string_view name(inside.begin(), nameEnd);
        const auto* entry =
            std::find_if(std::begin(kElements), std::end(kElements),
                         [&](const ElementName& known) { return known.name == name; });
        if (entry == std::end(kElements)) {
            return fail("an element is not known");
        }
        tag.element = entry->element;
        at_ = tag.end;
        return true;
    }

    /// Puts a tag into its shortest form, under the name of an element.
    void normalizeTag(const Tag& tag, Element as) {
        const std::string_view name = nameOf(as);
        const bool keepsEmpty = tag.isEmpty && as != Element::Key;
        if (as != tag.element || keepsEmpty != tag.isEmpty ||
            tag.end - tag.start != name.size() + (tag.isEmpty ? 3 : 2)) {
            std::string plain = "<" + std::string(name) + (keepsEmpty ? "/>" : ">");
            if (keepsEmpty != tag.isEmpty) {
                plain += "</" + std::string(name) + ">";
            }
            replace(tag.start, tag.end, plain);
        }
    }

    /// Reads the close tag of an element and puts it into its shortest form, under a name.
    bool readCloseTag(Element element, Element as) {
        const size_t start = at_;
        const std::string_view name = nameOf(element);
        if (!startsWith("</") || text_.substr(at_ + 2, name.size()) != name) {
            return fail("an element is not closed as it was opened");
        }
        at_ += 2 + name.size();
        while (at_ < text_.size() && isSpace(text_[at_])) {
            ++at_;
        }
        if (!startsWith(">")) {
            return fail("an element is not closed as it was opened");
        }
        ++at_;
        if (as != element || at_ - start != name.size() + 3) {
            replace(start, at_, "</" + std::string(nameOf(as)) + ">");
        }
        return true;
    }

    /// Only the root object is handed on, without what stands round it.
    bool checkRoot() {
        Tag tag{};
        if (!readOpenTag(tag)) {
            return false;
        }
        if (tag.element != Element::Plist) {
            copiedTo_ = tag.start;
            return checkObject(tag, 1) && finish(at_);
        }
        if (tag.isEmpty) {
            return fail("it holds nothing");
        }
        Tag inner{};
        if (!skipBetween() || !readOpenTag(inner)) {
            return false;
        }
        copiedTo_ = inner.start;
        if (!checkObject(inner, 1)) {
            return false;
        }
        const size_t end = at_;
        return skipBetween() && readCloseTag(Element::Plist, Element::Plist) && finish(end);
    }

    bool finish(size_t end) {
        const std::string_view rest = text_.substr(copiedTo_, end - copiedTo_);
        if (result_.mended.empty()) {
            result_.unchanged = rest;
        } else {
            result_.mended += rest;
        }
        return true;
    }

    /// The rest of an object whose open tag has been read.
    bool checkObject(const Tag& tag, int depth) {
        if (depth > kDepthLimit) {
            return fail("it is nested too deeply");
        }
        switch (tag.element) {
        case Element::Plist:
            return fail("a property list stands inside another");
        case Element::Dict:
        case Element::Array:
            normalizeTag(tag, tag.element);
            return tag.isEmpty ||
                   (tag.element == Element::Dict ? checkPairs(depth) : checkItems(depth));
        case Element::String:
        case Element::Key: // in the place of a value it is one, too
            return checkText(tag, Element::String);
        case Element::True:
        case Element::False:
            normalizeTag(tag, tag.element);
            return tag.isEmpty || readCloseTag(tag.element, tag.element);
        case Element::Data:
        case Element::Date:
        case Element::Integer:
        case Element::Real:
            return checkLeaf(tag);
        }
        return false;
    }

    bool checkItems(int depth) {
        for (;;) {
            if (!skipBetween()) {
                return false;
            }
            if (startsWith("</")) {
                return readCloseTag(Element::Array, Element::Array);
            }
            Tag tag{};
            if (!readOpenTag(tag) || !checkObject(tag, depth + 1)) {
                return false;
            }
        }
    }

    bool checkPairs(int depth) {
        for (;;) {
            if (!skipBetween()) {
                return false;
            }
            if (startsWith("</")) {
                return readCloseTag(Element::Dict, Element::Dict);
            }
            Tag key{};
            Tag value{};
            if (!readOpenTag(key)) {
                return false;
            }
            if (key.element != Element::Key) {
                return fail("a dictionary has a value without a key");
            }
            if (!checkText(key, Element::Key) || !skipBetween() || !readOpenTag(value) ||
                !checkObject(value, depth + 1)) {
                return false;
            }
        }
    }

    // ------------------------------------------------------------------------ texts

    bool checkText(const Tag& tag, Element as) {
        normalizeTag(tag, as);
        if (tag.isEmpty) {
            return true;
        }
        const size_t start = at_;
        while (at_ < text_.size() && text_[at_] != '<' && text_[at_] != '&' && text_[at_] != 0) {
            ++at_;
        }
        if (startsWith("</")) {
            return isValidUtf8(text_.substr(start, at_ - start))
                       ? readCloseTag(tag.element, as)
                       : fail("a text is not valid UTF-8");
        }
        at_ = start;
        std::string decoded;
        if (!decodeText(decoded)) {
            return false;
        }
        if (!isValidUtf8(decoded)) {
            return fail("a text is not valid UTF-8");
        }
        if (decoded.find('\0') != std::string::npos) {
            decoded = result_.placeholders.add(adopt(createStringFromUtf8(decoded)));
        }
        replace(start, at_, escaped(decoded));
        return readCloseTag(tag.element, as);
    }

    /// Reads a text with references and CDATA sections in it, up to the close tag.
    bool decodeText(std::string& decoded) {
        constexpr std::string_view kSectionStart = "<![CDATA[";
        constexpr std::string_view kSectionEnd = "]]>";
        while (!startsWith("</")) {
            if (at_ >= text_.size()) {
                return fail("it ends too early");
            }
            if (startsWith(kSectionStart)) {
                const size_t start = at_ + kSectionStart.size();
                if (!skipThrough(kSectionEnd)) {
                    return false;
                }
                decoded += text_.substr(start, at_ - kSectionEnd.size() - start);
            } else if (text_[at_] == '<') {
                return fail("an element stands inside a text");
            } else if (text_[at_] != '&') {
                decoded += text_[at_++];
            } else if (!decodeReference(decoded)) {
                return false;
            }
        }
        return true;
    }

    bool decodeReference(std::string& decoded) {
        const size_t start = at_ + 1;
        const size_t end = text_.find(';', start);
        const auto character = end == std::string_view::npos
                                   ? std::nullopt
                                   : referencedCharacter(text_.substr(start, end - start));
        if (!character) {
            return fail("a character reference is not known");
        }
        UInt8 bytes[4];
        const auto size = static_cast<size_t>(encodeUtf8(*character, bytes));
        decoded.append(reinterpret_cast<const char*>(bytes), size);
        at_ = end + 1;
        return true;
    }

    // ------------------------------------------------------------------------ other leaves

    bool checkLeaf(const Tag& tag) {
        if (tag.isEmpty) {
            return fail("a value is empty");
        }
        const size_t start = at_;
        at_ = std::min(text_.find('<', start), text_.size());
        const std::string_view content = text_.substr(start, at_ - start);
        if (tag.element == Element::Date) {
            return checkDate(tag, content);
        }
        normalizeTag(tag, tag.element);
        return checkContent(tag.element, content, start) && readCloseTag(tag.element, tag.element);
    }

    bool checkContent(Element element, std::string_view content, size_t start) {
        if (element == Element::Real) {
            return isReal(content) || fail("a number is malformed");
        }
        if (element == Element::Integer) {
            const auto integer = normalInteger(content);
            if (!integer) {
                return fail("a number is malformed or too large");
            }
            if (*integer != content) {
                replace(start, at_, *integer);
            }
            return true;
        }
        const auto* bytes = reinterpret_cast<const UInt8*>(content.data());
        if (countAscii(bytes, static_cast<CFIndex>(content.size())) !=
            static_cast<CFIndex>(content.size())) {
            return fail("data holds something else");
        }
        if (!isPlainBase64(content)) {
            const std::string decoded = decodeBase64(content);
            std::string plain;
            appendBase64(plain, {reinterpret_cast<const UInt8*>(decoded.data()), decoded.size()});
            replace(start, at_, plain);
        }
        return true;
    }

    /// libplist has dates of four-digit years only.
    bool checkDate(const Tag& tag, std::string_view content) {
        const auto time = parseDate(content);
        if (!time) {
            return fail("a date is malformed");
        }
        const std::string date = formatDate(*time);
        const bool hasFourDigits =
            date.size() == "2001-01-01T00:00:00Z"sv.size() && !date.starts_with('-');
        const Element as = hasFourDigits ? Element::Date : Element::String;
        normalizeTag(tag, as);
        if (!hasFourDigits) {
            replace(tag.end, at_, result_.placeholders.add(adopt(CFDateCreate(nullptr, *time))));
        } else if (date != content) {
            replace(tag.end, at_, date);
        }
        return readCloseTag(tag.element, as);
    }

    std::string_view text_;
    size_t at_ = 0;
    size_t copiedTo_ = 0; ///< up to where the document has gone into the mended one
    CheckedDocument result_;
};

} // namespace

CheckedDocument checkDocument(std::string_view document) {
    return Checker(document).check();
}

} // namespace krl::cf
