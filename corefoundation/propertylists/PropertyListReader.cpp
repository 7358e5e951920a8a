#include "corefoundation/propertylists/PropertyListReader.h"

#include "corefoundation/propertylists/Base64.h"
#include "corefoundation/propertylists/XMLScanner.h"
#include "corefoundation/values/ByteBuffer.h"
#include "corefoundation/values/CFDateInternal.h"
#include "corefoundation/values/CFNumberInternal.h"
#include "corefoundation/values/CFStringInternal.h"
#include "corefoundation/values/Collections.h"
#include "corefoundation/values/Decimal.h"
#include "corefoundation/values/GregorianDate.h"
#include "corefoundation/values/Utf8.h"

#include <CoreFoundation/CFPropertyList.h>
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <vector>

namespace krl::cf {
namespace {

using namespace std::string_view_literals;

// ---------------------------------------------------------------------------- numbers

std::string_view withoutLeadingSpace(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    return text;
}

/// Takes a sign off. @return whether it is a minus.
bool takeSign(std::string_view& text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    return negative;
}

/// White space, a sign, white space, decimal or hexadecimal digits and nothing else, from -2^63 to
/// 2^64 - 1. @return null for anything else.
CFRef<CFTypeRef> readInteger(std::string_view text) {
    text = withoutLeadingSpace(text);
    const bool negative = takeSign(text);
    text = withoutLeadingSpace(text);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) {
        text.remove_prefix(2);
    }
    uint64_t magnitude = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, magnitude, hexadecimal ? 16 : 10);
    constexpr uint64_t kLargestNegative = uint64_t{1} << 63;
    if (error != std::errc() || end != last || (negative && magnitude > kLargestNegative)) {
        return nullptr;
    }
    if (!negative) {
        return adopt(createUnsignedNumber(magnitude));
    }
    return adopt(createInteger(static_cast<int64_t>(-magnitude)));
}

std::string_view skipDigits(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of("0123456789"), text.size()));
    return text;
}

bool equalsIgnoringCase(std::string_view text, std::string_view lowercase) {
    return std::equal(text.begin(), text.end(), lowercase.begin(), lowercase.end(),
                      [](char a, char b) { return (a | 0x20) == b; });
}

/// A decimal number as everybody writes it, without a sign before it.
bool isDecimal(std::string_view text) {
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
    takeSign(text);
    return !text.empty() && skipDigits(text).empty();
}

/// White space, a sign, then a decimal number, a nan or an infinity, and nothing else.
std::optional<double> parseReal(std::string_view text) {
    text = withoutLeadingSpace(text);
    const bool negative = takeSign(text);
    double magnitude = 0;
    if (equalsIgnoringCase(text, "nan")) {
        magnitude = std::nan("");
    } else if (equalsIgnoringCase(text, "inf") || equalsIgnoringCase(text, "infinity")) {
        magnitude = HUGE_VAL;
    } else if (isDecimal(text)) {
        magnitude = parseDecimal(std::string(text));
    } else {
        return std::nullopt;
    }
    return negative ? -magnitude : magnitude;
}

CFRef<CFTypeRef> readReal(std::string_view text) {
    const auto value = parseReal(text);
    return value ? adopt(createReal(*value)) : nullptr;
}

CFRef<CFTypeRef> readDate(std::string_view text) {
    const auto time = parseDate(text);
    return time ? adopt(createDate(*time)) : nullptr;
}

bool isAscii(std::string_view text) {
    const auto size = static_cast<CFIndex>(text.size());
    return countAscii(reinterpret_cast<const UInt8*>(text.data()), size) == size;
}

// ---------------------------------------------------------------------------- keys

/// Keys that were read lately: the entries of a catalogue all have the same ones, and share them.
class RecentKeys {
public:
    /// @return null when the text is not valid UTF-8.
    CFRef<CFStringRef> find(std::string_view utf8) {
        CFRef<CFStringRef>& recent = keys_[placeOf(utf8)];
        if (!recent || Text(recent.get()) != Text(utf8)) {
            recent = adopt(createStringFromUtf8(utf8));
        }
        return recent;
    }

private:
    static constexpr size_t kCount = 256;

    static size_t placeOf(std::string_view utf8) {
        size_t place = utf8.size();
        for (const char character : utf8.substr(0, 8)) {
            place = place * 31 + static_cast<unsigned char>(character);
        }
        return place % kCount;
    }

    std::array<CFRef<CFStringRef>, kCount> keys_;
};

// ---------------------------------------------------------------------------- the tree

class Reader {
public:
    Reader(std::string_view document, CFOptionFlags mutability)
        : scanner_(document), containersMutable_(mutability >= kCFPropertyListMutableContainers),
          leavesMutable_(mutability >= kCFPropertyListMutableContainersAndLeaves) {}

    CFRef<CFTypeRef> readRoot() {
        Tag tag{};
        if (!scanner_.skipProlog() || !scanner_.readOpenTag(tag)) {
            return nullptr;
        }
        if (tag.element != Element::Plist) {
            return readObject(tag, 1);
        }
        Tag inner{};
        if (tag.isEmpty) {
            return refuse("it holds nothing");
        }
        if (!scanner_.skipBetween() || !scanner_.readOpenTag(inner)) {
            return nullptr;
        }
        auto root = readObject(inner, 1);
        const bool isWhole =
            root && scanner_.skipBetween() && scanner_.readCloseTag(Element::Plist);
        return isWhole ? root : nullptr;
    }

    const std::string& error() const { return scanner_.error(); }

private:
    std::nullptr_t refuse(std::string_view reason) {
        scanner_.fail(reason);
        return nullptr;
    }

    /// The rest of an object whose open tag has been read; null, with the error noted, when it is
    /// none.
    CFRef<CFTypeRef> readObject(const Tag& tag, int depth) {
        if (depth > kDepthLimit) {
            return refuse("it is nested too deeply");
        }
        switch (tag.element) {
        case Element::Plist:
            return refuse("a property list stands inside another");
        case Element::Dict:
            return readContainer(tag, depth, takeIntoDictionary);
        case Element::Array:
            return readContainer(tag, depth, takeIntoArray);
        case Element::String:
        case Element::Key: // in the place of a value it is one, too
            return readString(tag);
        case Element::True:
            return readBoolean(tag, kCFBooleanTrue);
        case Element::False:
            return readBoolean(tag, kCFBooleanFalse);
        case Element::Integer:
            return readLeaf(tag, readInteger, "a number is malformed or too large");
        case Element::Real:
            return readLeaf(tag, readReal, "a number is malformed");
        case Element::Date:
            return readLeaf(tag, readDate, "a date is malformed");
        case Element::Data:
            return readLeaf(
                tag, [this](std::string_view text) { return makeData(text); },
                "data holds something else");
        }
        return nullptr;
    }

    CFRef<CFTypeRef> readBoolean(const Tag& tag, CFBooleanRef value) {
        return tag.isEmpty || scanner_.readCloseTag(tag.element) ? retain(value) : nullptr;
    }

    template <typename Make>
    CFRef<CFTypeRef> readLeaf(const Tag& tag, Make make, std::string_view reason) {
        if (tag.isEmpty) {
            return refuse("a value is empty");
        }
        CFRef<CFTypeRef> value = make(scanner_.readPlain());
        if (!value) {
            return refuse(reason);
        }
        return scanner_.readCloseTag(tag.element) ? value : nullptr;
    }

    CFRef<CFTypeRef> makeData(std::string_view text) const {
        if (!isAscii(text)) {
            return nullptr;
        }
        ByteBuffer bytes;
        appendDecodedBase64(bytes, text);
        auto data = adopt(bytes.takeIntoData());
        return leavesMutable_ ? std::move(data) : adopt(freeze(data.leak()));
    }

    // ------------------------------------------------------------------------ texts

    /// The text of an element whose open tag has been read, and its close tag.
    template <typename Make>
    auto readText(const Tag& tag, Make make) -> decltype(make(""sv)) {
        std::string_view text;
        if (!tag.isEmpty && !scanner_.readText(text)) {
            return nullptr;
        }
        auto string = make(text);
        if (!string) {
            return refuse("a text is not valid UTF-8");
        }
        if (!tag.isEmpty && !scanner_.readCloseTag(tag.element)) {
            return nullptr;
        }
        return string;
    }

    CFRef<CFTypeRef> readString(const Tag& tag) {
        return readText(tag, [this](std::string_view text) -> CFRef<CFTypeRef> {
            if (leavesMutable_) {
                return adopt(createMutableStringFromUtf8(text));
            }
            return adopt(createStringFromUtf8(text));
        });
    }

    CFRef<CFStringRef> readKey(const Tag& tag) {
        return readText(tag, [this](std::string_view text) { return keys_.find(text); });
    }

    // ------------------------------------------------------------------------ containers

    template <typename Take>
    CFRef<CFTypeRef> readContainer(const Tag& tag, int depth, Take take) {
        const size_t first = pending_.size();
        if (!tag.isEmpty && !readContents(tag.element, depth)) {
            return nullptr;
        }
        auto container = adopt(take(std::span(pending_).subspan(first)));
        pending_.resize(first);
        return containersMutable_ ? std::move(container) : adopt(freeze(container.leak()));
    }

    /// Everything up to the close tag, and that.
    bool readContents(Element container, int depth) {
        for (;;) {
            if (!scanner_.skipBetween()) {
                return false;
            }
            if (scanner_.isAtCloseTag()) {
                return scanner_.readCloseTag(container);
            }
            if (!(container == Element::Dict ? readPair(depth) : readItem(depth))) {
                return false;
            }
        }
    }

    bool readItem(int depth) {
        Tag tag{};
        if (!scanner_.readOpenTag(tag)) {
            return false;
        }
        auto value = readObject(tag, depth + 1);
        if (!value) {
            return false;
        }
        pending_.push_back(std::move(value));
        return true;
    }

    bool readPair(int depth) {
        Tag tag{};
        if (!scanner_.readOpenTag(tag)) {
            return false;
        }
        if (tag.element != Element::Key) {
            return scanner_.fail("a dictionary has a value without a key");
        }
        auto key = readKey(tag);
        if (!key) {
            return false;
        }
        pending_.emplace_back(std::move(key));
        return scanner_.skipBetween() && readItem(depth);
    }

    XMLScanner scanner_;
    bool containersMutable_;
    bool leavesMutable_;
    RecentKeys keys_;
    /// What was read of the containers that are not complete yet, so that each is made in the right
    /// size at once.
    std::vector<CFRef<CFTypeRef>> pending_;
};

} // namespace

CFRef<CFTypeRef> readPropertyList(std::string_view document, CFOptionFlags mutability,
                                  std::string& error) {
    Reader reader(document, mutability);
    auto root = reader.readRoot();
    error = reader.error();
    return root;
}

} // namespace krl::cf
