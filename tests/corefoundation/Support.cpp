#include "tests/corefoundation/Support.h"

#include "tests/support/Texts.h"

#include <algorithm>
#include <bit>
#include <clocale>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace krl::cf::test {
namespace {

constexpr std::string_view kBase64Alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

CFRef<CFTypeRef> numberFrom(const std::string& decimal) {
    const auto bits = decimal.starts_with('-') ? static_cast<uint64_t>(std::stoll(decimal))
                                               : std::stoull(decimal);
    if (!decimal.starts_with('-') && bits > INT64_MAX) {
        // Only a document can hold such a number.
        auto xml = makeData("<integer>" + decimal + "</integer>");
        return adopt(CFPropertyListCreateFromXMLData(nullptr, xml.get(), 0, nullptr));
    }
    return makeInteger(static_cast<int64_t>(bits));
}

double doubleFrom(const Json& tree) {
    return std::bit_cast<double>(std::stoull(tree.at("bits").get<std::string>(), nullptr, 16));
}

Json treeOfNumber(CFNumberRef number) {
    if (!CFNumberIsFloatType(number)) {
        auto text = adopt(CFCopyDescription(number));
        return {{"type", "int"}, {"value", textOf(text.get())}};
    }
    double value = 0;
    CFNumberGetValue(number, kCFNumberFloat64Type, &value);
    if (value != value) {
        return {{"type", "real"}, {"value", "nan"}};
    }
    char decimal[64];
    char bits[32];
    std::snprintf(decimal, sizeof decimal, "%.17g", value);
    std::snprintf(bits, sizeof bits, "%016llx",
                  static_cast<unsigned long long>(std::bit_cast<uint64_t>(value)));
    return {{"type", "real"}, {"value", decimal}, {"bits", bits}};
}

Json treeOfString(CFStringRef string) {
    return {{"type", "string"}, {"value", textOf(string)}};
}

Json treeOfDate(CFDateRef date) {
    char decimal[64];
    std::snprintf(decimal, sizeof decimal, "%.17g", CFDateGetAbsoluteTime(date));
    return {{"type", "date"}, {"absolute_time", decimal}};
}

Json treeOfArray(CFArrayRef array) {
    Json items = Json::array();
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        items.push_back(treeOf(CFArrayGetValueAtIndex(array, i)));
    }
    return {{"type", "array"}, {"items", items}};
}

Json treeOfDictionary(CFDictionaryRef dictionary) {
    Json entries = Json::array();
    CFDictionaryApplyFunction(
        dictionary,
        [](const void* key, const void* value, void* context) {
            static_cast<Json*>(context)->push_back(
                {textOf(static_cast<CFStringRef>(key)), treeOf(value)});
        },
        &entries);
    return {{"type", "dict"}, {"entries", entries}};
}

std::vector<UniChar> unitsOf(const std::string& utf8) {
    auto string = makeString(utf8);
    std::vector<UniChar> units(static_cast<size_t>(CFStringGetLength(string.get())));
    CFStringGetCharacters(string.get(), CFRangeMake(0, CFStringGetLength(string.get())),
                          units.data());
    return units;
}

} // namespace

Json loadVectors(const std::string& file, const std::string& section) {
    std::ifstream stream(std::string(KRL_CF_VECTORS "/") + file);
    Json rows = Json::parse(stream).at(section);
    if (rows.empty()) {
        throw std::runtime_error("no vectors in " + file);
    }
    return rows;
}

CFRef<CFStringRef> makeString(std::string_view utf8) {
    return stringOf(utf8);
}

std::string textOf(CFStringRef string) {
    return krl::test::text(string);
}

CFRef<CFDataRef> makeData(std::string_view bytes) {
    return adopt(CFDataCreate(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                              static_cast<CFIndex>(bytes.size())));
}

std::string bytesOf(CFDataRef data) {
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
            static_cast<size_t>(CFDataGetLength(data))};
}

CFRef<CFNumberRef> makeInteger(int64_t value) {
    return adopt(CFNumberCreate(nullptr, kCFNumberSInt64Type, &value));
}

CFRef<CFNumberRef> makeReal(double value) {
    return adopt(CFNumberCreate(nullptr, kCFNumberFloat64Type, &value));
}

CFRef<CFMutableDictionaryRef> makeDictionary() {
    return adopt(CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks));
}

CFRef<CFMutableArrayRef> makeArray() {
    return adopt(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
}

CFRange wholeRange(CFArrayRef array) {
    return CFRangeMake(0, CFArrayGetCount(array));
}

std::vector<std::string> textsOf(CFArrayRef strings) {
    std::vector<std::string> texts;
    for (CFIndex i = 0; i < CFArrayGetCount(strings); ++i) {
        texts.push_back(textOf(static_cast<CFStringRef>(CFArrayGetValueAtIndex(strings, i))));
    }
    return texts;
}

std::vector<std::string> keysOf(CFDictionaryRef dictionary) {
    std::vector<const void*> keys(static_cast<size_t>(CFDictionaryGetCount(dictionary)));
    CFDictionaryGetKeysAndValues(dictionary, keys.data(), nullptr);
    std::vector<std::string> texts;
    for (const void* key : keys) {
        texts.push_back(textOf(static_cast<CFStringRef>(key)));
    }
    return texts;
}

NumbersWithCommas::NumbersWithCommas() : before_(std::setlocale(LC_NUMERIC, nullptr)) {
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "fr_FR.UTF-8", "fr_FR.utf8"}) {
        if (std::setlocale(LC_NUMERIC, name) != nullptr) {
            areThere_ = true;
            return;
        }
    }
}

NumbersWithCommas::~NumbersWithCommas() {
    std::setlocale(LC_NUMERIC, before_.c_str());
}

std::string decodeBase64(const std::string& text) {
    std::string bytes;
    unsigned bits = 0;
    int count = 0;
    for (const char character : text) {
        const size_t value = kBase64Alphabet.find(character);
        if (value == std::string_view::npos) {
            continue;
        }
        bits = bits << 6 | static_cast<unsigned>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFF);
        }
    }
    return bytes;
}

std::string encodeBase64(const std::string& bytes) {
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        unsigned group = 0;
        for (size_t j = 0; j < 3; ++j) {
            group = group << 8 | (i + j < bytes.size() ? static_cast<UInt8>(bytes[i + j]) : 0U);
        }
        for (size_t j = 0; j < 4; ++j) {
            const unsigned value = group >> (18 - 6 * j) & 0x3F;
            text += i + j <= bytes.size() ? kBase64Alphabet[value] : '=';
        }
    }
    return text;
}

std::string asHex(std::string_view bytes) {
    std::string hex;
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", unsigned{static_cast<UInt8>(byte)});
        hex += digits;
    }
    return hex;
}

CFRef<CFTypeRef> objectFrom(const Json& tree) {
    const std::string type = tree.at("type");
    if (type == "string") {
        return makeString(tree.at("value").get<std::string>());
    }
    if (type == "int") {
        return numberFrom(tree.at("value"));
    }
    if (type == "real") {
        return makeReal(doubleFrom(tree));
    }
    if (type == "real32") {
        const auto value = static_cast<float>(doubleFrom(tree));
        return adopt(CFNumberCreate(nullptr, kCFNumberFloat32Type, &value));
    }
    if (type == "bool") {
        return retain(tree.at("value").get<bool>() ? kCFBooleanTrue : kCFBooleanFalse);
    }
    if (type == "data") {
        return makeData(decodeBase64(tree.at("base64")));
    }
    if (type == "date") {
        const std::string time = tree.at("absolute_time");
        return adopt(CFDateCreate(nullptr, std::stod(time)));
    }
    if (type == "array") {
        auto array = makeArray();
        for (const Json& item : tree.at("items")) {
            CFArrayAppendValue(array.get(), objectFrom(item).get());
        }
        return array;
    }
    if (type != "dict") {
        throw std::runtime_error("no such type: " + type);
    }
    auto dictionary = makeDictionary();
    for (const Json& entry : tree.at("entries")) {
        auto key = makeString(entry.at(0).get<std::string>());
        CFDictionarySetValue(dictionary.get(), key.get(), objectFrom(entry.at(1)).get());
    }
    return dictionary;
}

Json treeOf(CFTypeRef object) {
    if (object == nullptr) {
        return nullptr;
    }
    if (auto string = cast<CFStringRef>(object)) {
        return treeOfString(string);
    }
    if (auto number = cast<CFNumberRef>(object)) {
        return treeOfNumber(number);
    }
    if (auto boolean = cast<CFBooleanRef>(object)) {
        return {{"type", "bool"}, {"value", CFBooleanGetValue(boolean) != 0}};
    }
    if (auto data = cast<CFDataRef>(object)) {
        return {{"type", "data"}, {"base64", encodeBase64(bytesOf(data))}};
    }
    if (auto date = cast<CFDateRef>(object)) {
        return treeOfDate(date);
    }
    if (auto array = cast<CFArrayRef>(object)) {
        return treeOfArray(array);
    }
    if (auto dictionary = cast<CFDictionaryRef>(object)) {
        return treeOfDictionary(dictionary);
    }
    throw std::runtime_error("not an object of a property list");
}

Json sorted(Json tree) {
    if (tree.is_null()) {
        return tree;
    }
    if (tree.at("type") == "array") {
        for (Json& item : tree.at("items")) {
            item = sorted(item);
        }
    }
    if (tree.at("type") == "dict") {
        for (Json& entry : tree.at("entries")) {
            entry.at(1) = sorted(entry.at(1));
        }
        std::sort(tree.at("entries").begin(), tree.at("entries").end(),
                  [](const Json& left, const Json& right) {
                      return unitsOf(left.at(0)) < unitsOf(right.at(0));
                  });
    }
    return tree;
}

} // namespace krl::cf::test
