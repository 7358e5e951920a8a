#include "corefoundation/values/CFStringInternal.h"
#include "corefoundation/values/Decimal.h"
#include "corefoundation/values/Utf8.h"

#include <CoreFoundation/CFRef.h>
#include <algorithm>
#include <cstring>

namespace krl::cf {
namespace {

// The record is __CFString of the public header. Its contents follow it in the same allocation, or
// stand in one of their own once a mutable string has outgrown that, or are a constant's. Narrow
// contents end in a zero.
constexpr uint16_t kWideFlag = kFirstTypeFlag;
constexpr uint16_t kOwnContentsFlag = kFirstTypeFlag << 1;

bool isWide(const __CFString& string) {
    return (string.header.flags & kWideFlag) != 0;
}

size_t contentsSize(CFIndex capacity, bool wide) {
    const auto units = static_cast<size_t>(capacity);
    return wide ? units * sizeof(UniChar) : units + 1;
}

void* writableContents(__CFString& string) {
    return const_cast<void*>(string.contents);
}

__CFString* createRecord(CFIndex length, bool wide, uint16_t flags) {
    auto* string = createObject<__CFString>(kStringTypeID, contentsSize(length, wide), length,
                                            nullptr, length);
    string->header.flags = static_cast<uint16_t>(flags | (wide ? kWideFlag : 0));
    string->contents = string + 1;
    return string;
}

void terminate(__CFString& string) {
    if (!isWide(string)) {
        static_cast<char*>(writableContents(string))[string.length] = 0;
    }
}

void finalizeString(CFTypeRef object) {
    auto& string = mutableRecordOf<__CFString>(object);
    if ((string.header.flags & kOwnContentsFlag) != 0) {
        std::free(writableContents(string));
    }
}

bool equalStrings(CFTypeRef left, CFTypeRef right) {
    return Text(static_cast<CFStringRef>(left)) == Text(static_cast<CFStringRef>(right));
}

// Four units are hashed at a time, and their own sum wraps at 32 bits before it joins the rest.
constexpr CFHashCode kOneStep = 257;
constexpr CFHashCode kFourSteps = 67503105; // 257 to the 4th, modulo 2 to the 32nd
constexpr CFIndex kFullyHashedLength = 96;
constexpr CFIndex kHashWindow = 32;

template <typename Unit>
CFHashCode hashUnits(CFHashCode hash, const Unit* units, CFIndex count) {
    for (; count >= 4; count -= 4, units += 4) {
        CFHashCode four = units[0];
        four = four * kOneStep + units[1];
        four = four * kOneStep + units[2];
        four = four * kOneStep + units[3];
        hash = hash * kFourSteps + (four & 0xFFFFFFFF);
    }
    for (; count > 0; --count, ++units) {
        hash = hash * kOneStep + *units;
    }
    return hash;
}

template <typename Unit>
CFHashCode hashText(const Unit* units, CFIndex length) {
    auto hash = static_cast<CFHashCode>(length);
    if (length <= kFullyHashedLength) {
        hash = hashUnits(hash, units, length);
    } else {
        hash = hashUnits(hash, units, kHashWindow);
        hash = hashUnits(hash, units + length / 2 - kHashWindow / 2, kHashWindow);
        hash = hashUnits(hash, units + length - kHashWindow, kHashWindow);
    }
    return hash + (hash << (length & 31));
}

CFHashCode hashString(CFTypeRef object) {
    const Text text(static_cast<CFStringRef>(object));
    return text.isWide() ? hashText(text.wide(), text.length())
                         : hashText(reinterpret_cast<const UInt8*>(text.narrow()), text.length());
}

CFStringRef copyStringDescription(CFTypeRef object) {
    return CFStringCreateCopy(nullptr, static_cast<CFStringRef>(object));
}

} // namespace

constinit const ClassTable kStringClass{"CFString", finalizeString, equalStrings, hashString,
                                        copyStringDescription};

// ---------------------------------------------------------------------------- texts

Text::Text(CFStringRef string) : Text(string->contents, string->length, cf::isWide(*string)) {}

bool Text::operator==(const Text& other) const {
    if (length_ != other.length_) {
        return false;
    }
    if (length_ == 0) {
        return true;
    }
    if (wide_ == other.wide_) {
        const auto units = static_cast<size_t>(length_);
        return std::memcmp(contents_, other.contents_, wide_ ? units * sizeof(UniChar) : units) ==
               0;
    }
    for (CFIndex i = 0; i < length_; ++i) {
        if ((*this)[i] != other[i]) {
            return false;
        }
    }
    return true;
}

bool Text::startsWith(const Text& prefix) const {
    return prefix.length_ <= length_ && part(0, prefix.length_) == prefix;
}

bool Text::endsWith(const Text& suffix) const {
    return suffix.length_ <= length_ && from(length_ - suffix.length_) == suffix;
}

CFIndex Text::find(const Text& other, CFIndex start) const {
    if (!wide_ && !other.wide_) {
        const size_t found = std::string_view(narrow(), static_cast<size_t>(length_))
                                 .find({other.narrow(), static_cast<size_t>(other.length_)},
                                       static_cast<size_t>(start));
        return found == std::string_view::npos ? kCFNotFound : static_cast<CFIndex>(found);
    }
    for (CFIndex at = start; at + other.length_ <= length_; ++at) {
        if (part(at, other.length_) == other) {
            return at;
        }
    }
    return kCFNotFound;
}

CFComparisonResult Text::compare(const Text& other) const {
    const CFIndex common = std::min(length_, other.length_);
    for (CFIndex i = 0; i < common; ++i) {
        if ((*this)[i] != other[i]) {
            return (*this)[i] < other[i] ? kCFCompareLessThan : kCFCompareGreaterThan;
        }
    }
    if (length_ == other.length_) {
        return kCFCompareEqualTo;
    }
    return length_ < other.length_ ? kCFCompareLessThan : kCFCompareGreaterThan;
}

void Text::copyTo(UniChar* units) const {
    for (CFIndex i = 0; i < length_; ++i) {
        units[i] = (*this)[i];
    }
}

namespace {

bool isAscii(const Text& text) {
    if (!text.isWide()) {
        return true;
    }
    for (CFIndex i = 0; i < text.length(); ++i) {
        if (text[i] >= 0x80) {
            return false;
        }
    }
    return true;
}

void copyNarrow(const Text& text, char* bytes) {
    if (!text.isWide()) {
        std::copy_n(text.narrow(), text.length(), bytes);
        return;
    }
    for (CFIndex i = 0; i < text.length(); ++i) {
        bytes[i] = static_cast<char>(text[i]);
    }
}

__CFString* createRecordWithText(const Text& text, uint16_t flags) {
    const bool wide = !isAscii(text);
    __CFString* string = createRecord(text.length(), wide, flags);
    if (wide) {
        text.copyTo(static_cast<UniChar*>(writableContents(*string)));
    } else {
        copyNarrow(text, static_cast<char*>(writableContents(*string)));
        terminate(*string);
    }
    return string;
}

__CFString* createRecordFromUtf8(std::string_view utf8, uint16_t flags) {
    const auto* bytes = reinterpret_cast<const UInt8*>(utf8.data());
    const auto size = static_cast<CFIndex>(utf8.size());
    if (countAscii(bytes, size) == size) {
        return createRecordWithText(Text(utf8), flags);
    }
    const CFIndex length = utf16LengthOfUtf8(bytes, size);
    if (length == kCFNotFound) {
        return nullptr;
    }
    __CFString* string = createRecord(length, /*wide=*/true, flags);
    convertUtf8ToUtf16(bytes, size, static_cast<UniChar*>(writableContents(*string)));
    return string;
}

/// Null when the encoding is unknown or does not have these bytes. A byte order mark at the start is
/// not part of the text.
__CFString* createRecordFromBytes(std::string_view bytes, CFStringEncoding encoding) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (encoding == kCFStringEncodingUTF8) {
        if (bytes.starts_with(kByteOrderMark)) {
            bytes.remove_prefix(kByteOrderMark.size());
        }
        return createRecordFromUtf8(bytes, 0);
    }
    const auto size = static_cast<CFIndex>(bytes.size());
    if (encoding != kCFStringEncodingASCII ||
        countAscii(reinterpret_cast<const UInt8*>(bytes.data()), size) != size) {
        return nullptr;
    }
    return createRecordWithText(Text(bytes), 0);
}

/// Gives a mutable string contents of its own with room for capacity units.
void moveContents(__CFString& string, CFIndex capacity, bool wide) {
    const Text old(&string);
    void* contents = allocate(contentsSize(capacity, wide));
    if (wide) {
        old.copyTo(static_cast<UniChar*>(contents));
    } else {
        copyNarrow(old, static_cast<char*>(contents));
    }
    finalizeString(&string);
    string.contents = contents;
    string.capacity = capacity;
    string.header.flags =
        static_cast<uint16_t>(string.header.flags | kOwnContentsFlag | (wide ? kWideFlag : 0));
}

void reserve(__CFString& string, CFIndex length, bool wide) {
    const bool widens = wide && !isWide(string);
    if (length > string.capacity || widens) {
        const CFIndex capacity = string.capacity;
        moveContents(string, length > capacity ? std::max(length, capacity * 2) : capacity,
                     wide || isWide(string));
    }
}

bool canEncode(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingUTF8 || encoding == kCFStringEncodingASCII;
}

/// The code point at an index; an unpaired surrogate as it is.
UTF32Char codePointAt(const Text& text, CFIndex index) {
    const UniChar unit = text[index];
    if (isHighSurrogate(unit) && index + 1 < text.length() && isLowSurrogate(text[index + 1])) {
        return joinSurrogates(unit, text[index + 1]);
    }
    return unit;
}

/// Writes a code point in the encoding. @return the bytes, 0 when it cannot be expressed.
CFIndex encode(UTF32Char codePoint, CFStringEncoding encoding, UInt8* bytes) {
    const bool surrogate = codePoint >= 0xD800 && codePoint < 0xE000;
    if (surrogate || (encoding == kCFStringEncodingASCII && codePoint >= 0x80)) {
        return 0;
    }
    return encodeUtf8(codePoint, bytes);
}

// ---------------------------------------------------------------------------- numbers in texts

bool isSpace(UniChar unit) {
    return (unit >= 0x09 && unit <= 0x0D) || unit == ' ' || unit == 0x85 || unit == 0xA0 ||
           unit == 0x1680 || (unit >= 0x2000 && unit <= 0x200B) || unit == 0x2028 ||
           unit == 0x2029 || unit == 0x202F || unit == 0x205F || unit == 0x3000;
}

bool isDigit(UniChar unit) {
    return unit >= '0' && unit <= '9';
}

CFIndex skipSpace(const Text& text, CFIndex at) {
    while (at < text.length() && isSpace(text[at])) {
        ++at;
    }
    return at;
}

/// Skips white space, a sign and white space.
CFIndex skipSign(const Text& text, bool& negative) {
    CFIndex at = skipSpace(text, 0);
    negative = at < text.length() && text[at] == '-';
    if (negative || (at < text.length() && text[at] == '+')) {
        at = skipSpace(text, at + 1);
    }
    return at;
}

/// The decimal number at a place, empty when there is none.
std::string decimalAt(const Text& text, CFIndex at) {
    std::string decimal;
    const auto takeDigits = [&] {
        const size_t before = decimal.size();
        for (; at < text.length() && isDigit(text[at]); ++at) {
            decimal += static_cast<char>(text[at]);
        }
        return decimal.size() > before;
    };
    bool hasDigits = takeDigits();
    if (at < text.length() && text[at] == '.') {
        decimal += '.';
        ++at;
        hasDigits = takeDigits() || hasDigits;
    }
    if (!hasDigits) {
        return {};
    }
    if (at < text.length() && (text[at] == 'e' || text[at] == 'E')) {
        const size_t mantissa = decimal.size();
        decimal += 'e';
        ++at;
        if (at < text.length() && (text[at] == '+' || text[at] == '-')) {
            decimal += static_cast<char>(text[at++]);
        }
        if (!takeDigits()) {
            decimal.resize(mantissa);
        }
    }
    return decimal;
}

} // namespace

CFStringRef createString(const Text& text) {
    return createRecordWithText(text, 0);
}

CFStringRef createStringFromUtf8(std::string_view utf8) {
    return createRecordFromUtf8(utf8, 0);
}

CFMutableStringRef createMutableStringFromUtf8(std::string_view utf8) {
    return createRecordFromUtf8(utf8, kMutableFlag);
}

void appendText(CFMutableStringRef string, const Text& text) {
    reserve(*string, string->length + text.length(), !isAscii(text));
    if (isWide(*string)) {
        text.copyTo(static_cast<UniChar*>(writableContents(*string)) + string->length);
    } else {
        copyNarrow(text, static_cast<char*>(writableContents(*string)) + string->length);
    }
    string->length += text.length();
    terminate(*string);
}

void appendAscii(CFMutableStringRef string, std::string_view ascii) {
    appendText(string, Text(ascii));
}

void replaceContents(CFMutableStringRef string, std::span<const UniChar> units) {
    finalizeString(string);
    string->header.flags =
        static_cast<uint16_t>(string->header.flags & ~(kWideFlag | kOwnContentsFlag));
    string->contents = string + 1;
    string->length = 0;
    string->capacity = 0;
    appendText(string, {units.data(), static_cast<CFIndex>(units.size()), true});
}

bool appendUtf8(std::string& utf8, const Text& text) {
    if (!text.isWide()) {
        utf8.append(text.narrow(), static_cast<size_t>(text.length()));
        return true;
    }
    for (CFIndex i = 0; i < text.length();) {
        const UTF32Char codePoint = codePointAt(text, i);
        UInt8 bytes[4];
        const CFIndex size = encode(codePoint, kCFStringEncodingUTF8, bytes);
        if (size == 0) {
            return false;
        }
        utf8.append(reinterpret_cast<const char*>(bytes), static_cast<size_t>(size));
        i += codePoint < 0x10000 ? 1 : 2;
    }
    return true;
}

} // namespace krl::cf

using namespace krl::cf;

CFTypeID CFStringGetTypeID() noexcept {
    return kStringTypeID;
}

// ---------------------------------------------------------------------------- making

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* cStr, CFStringEncoding encoding) {
    return createRecordFromBytes(cStr, encoding);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean) {
    return createRecordFromBytes(
        {reinterpret_cast<const char*>(bytes), static_cast<size_t>(numBytes)}, encoding);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* chars, CFIndex numChars) {
    return createString({chars, numChars, true});
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef string) {
    if (!isMutable(string)) {
        return retain(string).leak();
    }
    return createString(Text(string));
}

CFStringRef CFStringCreateWithSubstring(CFAllocatorRef, CFStringRef string, CFRange range) {
    return createString(Text(string).part(range.location, range.length));
}

CFMutableStringRef CFStringCreateMutable(CFAllocatorRef, CFIndex) {
    return createRecordWithText(Text(std::string_view()), kMutableFlag);
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef string) {
    return createRecordWithText(Text(string), kMutableFlag);
}

// ---------------------------------------------------------------------------- changing

void CFStringAppend(CFMutableStringRef string, CFStringRef appendedString) {
    if (string == appendedString) {
        auto copy = adopt(createString(Text(appendedString)));
        appendText(string, Text(copy.get()));
        return;
    }
    appendText(string, Text(appendedString));
}

void CFStringAppendCharacters(CFMutableStringRef string, const UniChar* chars, CFIndex numChars) {
    appendText(string, {chars, numChars, true});
}

void CFStringAppendCString(CFMutableStringRef string, const char* cStr, CFStringEncoding encoding) {
    auto appended = adopt(CFStringCreateWithCString(nullptr, cStr, encoding));
    if (appended) {
        appendText(string, Text(appended.get()));
    }
}

// ---------------------------------------------------------------------------- looking

CFIndex CFStringGetLength(CFStringRef string) noexcept {
    return string->length;
}

UniChar CFStringGetCharacterAtIndex(CFStringRef string, CFIndex idx) noexcept {
    return Text(string)[idx];
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer) noexcept {
    Text(string).part(range.location, range.length).copyTo(buffer);
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding) noexcept {
    if (bufferSize <= 0) {
        return false;
    }
    CFIndex used = 0;
    const CFIndex converted =
        CFStringGetBytes(string, CFRangeMake(0, string->length), encoding, /*lossByte=*/0, false,
                         reinterpret_cast<UInt8*>(buffer), bufferSize - 1, &used);
    const bool complete = canEncode(encoding) && converted == string->length;
    buffer[complete ? used : 0] = 0;
    return complete;
}

const char* CFStringGetCStringPtr(CFStringRef string, CFStringEncoding encoding) noexcept {
    return canEncode(encoding) && !isWide(*string) ? Text(string).narrow() : nullptr;
}

CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                         UInt8 lossByte, Boolean, UInt8* buffer, CFIndex maxBufLen,
                         CFIndex* usedBufLen) noexcept {
    const Text text = Text(string).part(range.location, range.length);
    const CFIndex room = buffer != nullptr ? maxBufLen : INT64_MAX;
    CFIndex used = 0;
    CFIndex at = 0;
    while (canEncode(encoding) && at < text.length()) {
        const UTF32Char codePoint = codePointAt(text, at);
        UInt8 bytes[4] = {lossByte};
        CFIndex size = encode(codePoint, encoding, bytes);
        if (size == 0 && lossByte != 0) {
            size = 1;
        }
        if (size == 0 || size > room - used) {
            break;
        }
        if (buffer != nullptr) {
            std::memcpy(buffer + used, bytes, static_cast<size_t>(size));
        }
        used += size;
        at += codePoint < 0x10000 ? 1 : 2;
    }
    if (usedBufLen != nullptr) {
        *usedBufLen = used;
    }
    return at;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) noexcept {
    if (!canEncode(encoding)) {
        return kCFNotFound;
    }
    return encoding == kCFStringEncodingUTF8 ? length * 3 : length;
}

// ---------------------------------------------------------------------------- comparing, searching

Boolean CFStringHasPrefix(CFStringRef string, CFStringRef prefix) noexcept {
    return prefix->length > 0 && Text(string).startsWith(Text(prefix));
}

Boolean CFStringHasSuffix(CFStringRef string, CFStringRef suffix) noexcept {
    return suffix->length > 0 && Text(string).endsWith(Text(suffix));
}

CFComparisonResult CFStringCompare(CFStringRef string1, CFStringRef string2,
                                   CFStringCompareFlags compareOptions) noexcept {
    if (compareOptions == 0) {
        return Text(string1).compare(Text(string2));
    }
    return compareWithOptions(Text(string1), Text(string2), compareOptions);
}

CFRange CFStringFind(CFStringRef string, CFStringRef stringToFind, CFStringCompareFlags) noexcept {
    const CFIndex found =
        stringToFind->length > 0 ? Text(string).find(Text(stringToFind), 0) : kCFNotFound;
    return found == kCFNotFound ? CFRangeMake(kCFNotFound, 0)
                                : CFRangeMake(found, stringToFind->length);
}

// ---------------------------------------------------------------------------- splitting, joining

CFArrayRef CFStringCreateArrayBySeparatingStrings(CFAllocatorRef, CFStringRef string,
                                                  CFStringRef separatorString) {
    auto parts = adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    const Text text(string);
    const Text separator(separatorString);
    CFIndex start = 0;
    const auto add = [&](CFIndex end) {
        auto part = adopt(createString(text.part(start, end - start)));
        CFArrayAppendValue(parts.get(), part.get());
    };
    while (separator.length() > 0) {
        const CFIndex found = text.find(separator, start);
        if (found == kCFNotFound) {
            break;
        }
        add(found);
        start = found + separator.length();
    }
    add(text.length());
    return freeze(parts.leak());
}

CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef, CFArrayRef array,
                                             CFStringRef separatorString) {
    CFMutableStringRef joined = CFStringCreateMutable(nullptr, 0);
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        if (i > 0) {
            appendText(joined, Text(separatorString));
        }
        appendText(joined, Text(static_cast<CFStringRef>(CFArrayGetValueAtIndex(array, i))));
    }
    return freeze(joined);
}

// ---------------------------------------------------------------------------- numbers in texts

SInt32 CFStringGetIntValue(CFStringRef string) noexcept {
    const Text text(string);
    bool negative = false;
    int64_t value = 0;
    for (CFIndex at = skipSign(text, negative);
         at < text.length() && isDigit(text[at]) && value <= INT32_MAX; ++at) {
        value = value * 10 + (text[at] - '0');
    }
    value = negative ? -value : value;
    return static_cast<SInt32>(std::clamp<int64_t>(value, INT32_MIN, INT32_MAX));
}

double CFStringGetDoubleValue(CFStringRef string) noexcept {
    const Text text(string);
    bool negative = false;
    const CFIndex at = skipSign(text, negative);
    const std::string decimal = decimalAt(text, at);
    if (decimal.empty()) {
        return 0;
    }
    const double value = parseDecimal(decimal);
    return negative ? -value : value;
}
