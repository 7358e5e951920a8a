/// What the files about strings share. Internal.
#pragma once

#include "corefoundation/values/CFRuntime.h"

#include <span>
#include <string>
#include <string_view>

namespace krl::cf {

/// The code units of a string, or of a part of one. ASCII texts have one byte a unit, all others
/// two; so two whole strings of different widths are never equal.
class Text {
public:
    explicit Text(CFStringRef string);

    Text(const void* contents, CFIndex length, bool wide)
        : contents_(contents), length_(length), wide_(wide) {}

    explicit Text(std::string_view ascii)
        : Text(ascii.data(), static_cast<CFIndex>(ascii.size()), false) {}

    CFIndex length() const { return length_; }

    bool isWide() const { return wide_; }

    const char* narrow() const { return static_cast<const char*>(contents_); }

    const UniChar* wide() const { return static_cast<const UniChar*>(contents_); }

    UniChar operator[](CFIndex index) const {
        return wide_ ? wide()[index] : static_cast<UInt8>(narrow()[index]);
    }

    Text part(CFIndex start, CFIndex length) const {
        const CFIndex offset = wide_ ? start * static_cast<CFIndex>(sizeof(UniChar)) : start;
        return {static_cast<const char*>(contents_) + offset, length, wide_};
    }

    Text from(CFIndex start) const { return part(start, length_ - start); }

    bool operator==(const Text& other) const;
    bool startsWith(const Text& prefix) const;
    bool endsWith(const Text& suffix) const;
    /// Where the other text stands from start on, or kCFNotFound. It must not be empty.
    CFIndex find(const Text& other, CFIndex start) const;
    /// In the order of code units.
    CFComparisonResult compare(const Text& other) const;
    void copyTo(UniChar* units) const;

private:
    const void* contents_;
    CFIndex length_;
    bool wide_;
};

/// An immutable string with the units of a text.
CFStringRef createString(const Text& text);

/// An immutable string of valid UTF-8 text or, when it is none, null. A byte order mark at the start
/// is a character like others here.
CFStringRef createStringFromUtf8(std::string_view utf8);

/// As createStringFromUtf8, but mutable.
CFMutableStringRef createMutableStringFromUtf8(std::string_view utf8);

void appendText(CFMutableStringRef string, const Text& text);
void appendAscii(CFMutableStringRef string, std::string_view ascii);

/// Puts these units in place of all others.
void replaceContents(CFMutableStringRef string, std::span<const UniChar> units);

/// Appends a text in UTF-8. @return false, with part of it appended, at an unpaired surrogate.
bool appendUtf8(std::string& utf8, const Text& text);

/// Order by rules of compareOptions, see CFStringCompareFlags.
CFComparisonResult compareWithOptions(const Text& left, const Text& right,
                                      CFStringCompareFlags options);

} // namespace krl::cf
