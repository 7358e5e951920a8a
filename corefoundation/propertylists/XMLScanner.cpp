#include "corefoundation/propertylists/XMLScanner.h"

#include "corefoundation/values/Utf8.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <vector>

namespace krl::cf {
namespace {

struct ElementName {
    std::string_view name;
    Element element;
};

/// The frequent ones first.
constexpr ElementName kElements[] = {
    {"string", Element::String},   {"key", Element::Key},     {"dict", Element::Dict},
    {"integer", Element::Integer}, {"array", Element::Array}, {"true", Element::True},
    {"false", Element::False},     {"real", Element::Real},   {"date", Element::Date},
    {"data", Element::Data},       {"plist", Element::Plist},
};

std::string_view nameOf(Element element) {
    return std::find_if(std::begin(kElements), std::end(kElements),
                        [&](const ElementName& entry) { return entry.element == element; })
        ->name;
}

bool isSpace(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

/// Whether a name may begin with it. What is not ASCII is taken for a letter.
bool beginsName(char character) {
    const auto byte = static_cast<unsigned char>(character);
    const unsigned lower = byte | 0x20U;
    return (lower >= 'a' && lower <= 'z') || byte == '_' || byte == ':' || byte >= 0x80;
}

bool continuesName(char character) {
    return beginsName(character) || (character >= '0' && character <= '9') || character == '-' ||
           character == '.';
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

bool hasTwins(std::vector<std::string_view>& names) {
    std::sort(names.begin(), names.end());
    return std::adjacent_find(names.begin(), names.end()) != names.end();
}

} // namespace

bool XMLScanner::fail(std::string_view reason) {
    error_ = reason;
    error_ += ", at line " + std::to_string(std::count(start_, at_, '\n') + 1);
    return false;
}

const char* XMLScanner::find(char character) const {
    const void* found = std::memchr(at_, character, static_cast<size_t>(end_ - at_));
    return found != nullptr ? static_cast<const char*>(found) : end_;
}

void XMLScanner::skipSpace() {
    while (at_ < end_ && isSpace(*at_)) {
        ++at_;
    }
}

bool XMLScanner::skipName(std::string_view& name) {
    const char* start = at_;
    if (at_ == end_ || !beginsName(*at_)) {
        return fail("a name is missing");
    }
    while (at_ < end_ && continuesName(*at_)) {
        ++at_;
    }
    name = {start, static_cast<size_t>(at_ - start)};
    return true;
}

bool XMLScanner::skipThrough(std::string_view end) {
    const size_t found = rest().find(end);
    if (found == std::string_view::npos) {
        return fail("it ends too early");
    }
    at_ += found + end.size();
    return true;
}

// ---------------------------------------------------------------------------- between elements

bool XMLScanner::skipComment() {
    at_ += std::string_view("<!--").size();
    if (!skipThrough("--")) {
        return false;
    }
    if (!startsWith(">")) {
        return fail("a comment holds \"--\"");
    }
    ++at_;
    return true;
}

/// What an instruction says is not looked at. Before the root element the declaration is one of
/// them, wherever it stands.
bool XMLScanner::skipInstruction() {
    at_ += std::string_view("<?").size();
    std::string_view target;
    if (!skipName(target)) {
        return false;
    }
    if (!inProlog_ && target == "xml") {
        return fail("a declaration stands between elements");
    }
    if (!startsWith("?>") && (at_ == end_ || !isSpace(*at_))) {
        return fail("a processing instruction is malformed");
    }
    return skipThrough("?>");
}

bool XMLScanner::skipBetween() {
    for (;;) {
        skipSpace();
        if (end_ - at_ < 2 || *at_ != '<') {
            return true;
        }
        if (at_[1] == '?') {
            if (!skipInstruction()) {
                return false;
            }
        } else if (startsWith("<!--")) {
            if (!skipComment()) {
                return false;
            }
        } else {
            return true;
        }
    }
}

bool XMLScanner::skipQuoted(std::string_view& content) {
    if (at_ == end_ || (*at_ != '"' && *at_ != '\'')) {
        return fail("a value is not quoted");
    }
    const char quote = *at_++;
    const char* close = find(quote);
    if (close == end_) {
        return fail("it ends too early");
    }
    content = {at_, static_cast<size_t>(close - at_)};
    at_ = close + 1;
    return true;
}

/// A document type has a name and perhaps an identifier, and nothing of its own: entities that grow
/// when they are replaced cannot be defined.
bool XMLScanner::skipDocumentType() {
    at_ += std::string_view("<!DOCTYPE").size();
    skipSpace();
    std::string_view ignored;
    if (!skipName(ignored)) {
        return false;
    }
    skipSpace();
    const bool isPublic = startsWith("PUBLIC");
    if (isPublic || startsWith("SYSTEM")) {
        at_ += std::string_view("PUBLIC").size();
        for (int i = isPublic ? 0 : 1; i < 2; ++i) {
            skipSpace();
            if (!skipQuoted(ignored)) {
                return false;
            }
        }
        skipSpace();
    }
    if (!startsWith(">")) {
        return fail("its document type is not plain");
    }
    ++at_;
    return true;
}

bool XMLScanner::skipProlog() {
    if (at_ == end_) {
        return fail("it is empty");
    }
    inProlog_ = true;
    do {
        if (!skipBetween()) {
            return false;
        }
        if (!startsWith("<!DOCTYPE")) {
            inProlog_ = false;
            return true;
        }
    } while (skipDocumentType());
    return false;
}

// ---------------------------------------------------------------------------- tags

bool XMLScanner::readReference(UTF32Char& codePoint) {
    const char* const start = at_ + 1;
    const char* const end = find(';');
    const auto character =
        end != end_ ? referencedCharacter({start, static_cast<size_t>(end - start)}) : std::nullopt;
    if (!character) {
        return fail("a character reference is not known");
    }
    codePoint = *character;
    at_ = end + 1;
    return true;
}

bool XMLScanner::skipAttributeValue() {
    const char* const end = end_;
    std::string_view value;
    if (!skipQuoted(value)) {
        return false;
    }
    if (value.find('<') != std::string_view::npos) {
        return fail("an attribute holds \"<\"");
    }
    const char* const after = at_;
    end_ = value.data() + value.size(); // no reference reaches beyond the value
    UTF32Char ignored = 0;
    bool known = true;
    for (at_ = value.data(); known && (at_ = find('&')) < end_;) {
        known = readReference(ignored);
    }
    at_ = after;
    end_ = end;
    return known;
}

/// Attributes mean nothing here, but they must be some.
bool XMLScanner::skipAttributes() {
    std::vector<std::string_view> names;
    for (;;) {
        const bool hasSpace = at_ < end_ && isSpace(*at_);
        skipSpace();
        if (startsWith(">") || startsWith("/>")) {
            return !hasTwins(names) || fail("an attribute comes twice");
        }
        std::string_view name;
        if (!hasSpace || !skipName(name)) {
            return fail("a tag is malformed");
        }
        names.push_back(name);
        skipSpace();
        if (!startsWith("=")) {
            return fail("an attribute has no value");
        }
        ++at_;
        skipSpace();
        if (!skipAttributeValue()) {
            return false;
        }
    }
}

bool XMLScanner::readOpenTag(Tag& tag) {
    if (at_ == end_ || *at_ != '<') {
        return fail(at_ < end_ ? "text stands between elements" : "it ends too early");
    }
    const char* const start = ++at_;
    while (at_ < end_ && continuesName(*at_)) {
        ++at_;
    }
    const std::string_view name(start, static_cast<size_t>(at_ - start));
    const auto* entry = std::find_if(std::begin(kElements), std::end(kElements),
                                     [&](const ElementName& known) { return known.name == name; });
    if (entry == std::end(kElements)) {
        return fail("an element is not known");
    }
    tag.element = entry->element;
    if (at_ == end_) {
        return fail("it ends too early");
    }
    if (*at_ != '>' && !skipAttributes()) {
        return false;
    }
    tag.isEmpty = *at_ == '/';
    at_ += tag.isEmpty ? 2 : 1;
    return true;
}

bool XMLScanner::readCloseTag(Element element) {
    const std::string_view name = nameOf(element);
    const bool isThis = startsWith("</") && rest().substr(2).starts_with(name);
    if (isThis) {
        at_ += 2 + name.size();
        skipSpace();
    }
    if (!isThis || !startsWith(">")) {
        return fail("an element is not closed as it was opened");
    }
    ++at_;
    return true;
}

// ---------------------------------------------------------------------------- texts

std::string_view XMLScanner::readPlain() {
    const char* const start = at_;
    at_ = find('<');
    return {start, static_cast<size_t>(at_ - start)};
}

bool XMLScanner::readText(std::string_view& text) {
    const char* const start = at_;
    text = readPlain();
    const bool hasReference = std::memchr(text.data(), '&', text.size()) != nullptr;
    if (!hasReference && isAtCloseTag()) {
        return true;
    }
    at_ = start;
    return decodeText(text);
}

bool XMLScanner::decodeText(std::string_view& text) {
    decoded_.clear();
    const char* nextTag = find('<');
    while (!isAtCloseTag()) {
        if (at_ == end_) {
            return fail("it ends too early");
        }
        if (at_ == nextTag) {
            if (!decodeSection()) {
                return false;
            }
            nextTag = find('<');
        } else if (*at_ == '&') {
            if (!decodeReference()) {
                return false;
            }
        } else {
            const char* const reference =
                static_cast<const char*>(std::memchr(at_, '&', static_cast<size_t>(nextTag - at_)));
            const char* const end = reference != nullptr ? reference : nextTag;
            decoded_.append(at_, end);
            at_ = end;
        }
    }
    text = decoded_;
    return true;
}

bool XMLScanner::decodeSection() {
    constexpr std::string_view kStart = "<![CDATA[";
    constexpr std::string_view kEnd = "]]>";
    if (!startsWith(kStart)) {
        return fail("an element stands inside a text");
    }
    at_ += kStart.size();
    const char* const content = at_;
    if (!skipThrough(kEnd)) {
        return false;
    }
    decoded_.append(content, at_ - kEnd.size());
    return true;
}

bool XMLScanner::decodeReference() {
    UTF32Char codePoint = 0;
    if (!readReference(codePoint)) {
        return false;
    }
    UInt8 bytes[4];
    decoded_.append(reinterpret_cast<const char*>(bytes),
                    static_cast<size_t>(encodeUtf8(codePoint, bytes)));
    return true;
}

} // namespace krl::cf
