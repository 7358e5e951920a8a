/// What the tests of the CoreFoundation subset share.
#pragma once

#include <CoreFoundation/CFRef.h>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace krl::cf::test {

using Json = nlohmann::json;

/// A section of a vector file, see vectors/README.md; never empty.
Json loadVectors(const std::string& file, const std::string& section);

/// A string object of valid UTF-8.
CFRef<CFStringRef> makeString(std::string_view utf8);
/// The text of a string object in UTF-8, "(null)" for none; unpaired surrogates as "?".
std::string textOf(CFStringRef string);

CFRef<CFDataRef> makeData(std::string_view bytes);
std::string bytesOf(CFDataRef data);

CFRef<CFNumberRef> makeInteger(int64_t value);
CFRef<CFNumberRef> makeReal(double value);

/// A mutable dictionary and array of objects.
CFRef<CFMutableDictionaryRef> makeDictionary();
CFRef<CFMutableArrayRef> makeArray();

CFRange wholeRange(CFArrayRef array);
std::vector<std::string> textsOf(CFArrayRef strings);
/// The keys, which are strings, in order.
std::vector<std::string> keysOf(CFDictionaryRef dictionary);

/// Has numbers a comma in this process while it lives, where a locale for that is installed.
class NumbersWithCommas {
public:
    NumbersWithCommas();
    ~NumbersWithCommas();
    NumbersWithCommas(const NumbersWithCommas&) = delete;
    NumbersWithCommas& operator=(const NumbersWithCommas&) = delete;

    bool areThere() const { return areThere_; }

private:
    std::string before_;
    bool areThere_ = false;
};

std::string decodeBase64(const std::string& text);
std::string encodeBase64(const std::string& bytes);
std::string asHex(std::string_view bytes);

/// The object that a tagged tree of the vectors describes.
CFRef<CFTypeRef> objectFrom(const Json& tree);
/// The tagged tree of an object, in the vectors' own form, dictionaries in their own order.
Json treeOf(CFTypeRef object);
/// A tagged tree with its dictionaries in the vectors' order.
Json sorted(Json tree);

} // namespace krl::cf::test
