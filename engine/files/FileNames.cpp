#include "engine/files/FileNames.h"

#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace krl::engine {
namespace {

// A file system takes 255 bytes; what these leave is for a number and the end of a temporary name.
constexpr size_t kLongestStem = 200;
constexpr size_t kLongestExtension = 16;

bool fitsFileName(char32_t character) {
    constexpr std::u32string_view kMeantOtherwise = U"/\\:*?\"<>|";
    return character >= 0x20 && kMeantOtherwise.find(character) == std::u32string_view::npos &&
           !isUnsafe(character);
}

bool isCutOff(char32_t character) {
    return character == U'.' || character == U' ';
}

std::string lowerAscii(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return result;
}

/// Whether some systems take a file of this name for a device, whatever extension it has.
bool meansDevice(std::string_view name) {
    constexpr std::array<std::string_view, 6> kAlone{"con", "prn",    "aux",
                                                     "nul", "conin$", "conout$"};
    constexpr std::array<std::string_view, 13> kNumbers{
        "0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "\u00b9", "\u00b2", "\u00b3"};
    std::string base = lowerAscii(name.substr(0, name.find('.')));
    base.erase(base.find_last_not_of(' ') + 1);
    if (std::find(kAlone.begin(), kAlone.end(), base) != kAlone.end()) {
        return true;
    }
    return (base.starts_with("com") || base.starts_with("lpt")) &&
           std::find(kNumbers.begin(), kNumbers.end(), std::string_view(base).substr(3)) !=
               kNumbers.end();
}

/// What fits of a text in so many bytes.
std::u32string fitting(std::string_view text, size_t longest) {
    std::u32string result;
    size_t length = 0;
    for (const char32_t character : codePoints(text)) {
        const char32_t next = fitsFileName(character) ? character : U'_';
        length += utf8({&next, 1}).size();
        if (length > longest) {
            break;
        }
        result += next;
    }
    return result;
}

} // namespace

bool FileNames::take(const std::string& name) {
    return taken_.insert(caseless(name)).second;
}

std::string fileNameFor(std::string_view title) {
    std::u32string result = fitting(title, kLongestStem);
    while (!result.empty() && isCutOff(result.back())) {
        result.pop_back();
    }
    while (!result.empty() && result.front() == U' ') {
        result.erase(0, 1);
    }
    const std::string name = utf8(result);
    // A point at the beginning hides a file.
    return name.empty() || name.front() == '.' || meansDevice(name) ? "_" + name : name;
}

std::string FileNames::give(std::string_view title, std::string_view extension) {
    std::u32string end = fitting(extension, kLongestExtension);
    end.erase(std::remove_if(end.begin(), end.end(), isCutOff), end.end());
    const std::string stem = fileNameFor(title);
    const std::string tail = end.empty() ? "" : "." + utf8(end);
    std::string name = stem + tail;
    if (take(name)) {
        return name;
    }
    for (size_t& number = lastNumber_.try_emplace(caseless(name), 1).first->second;;) {
        std::string numbered = fmt::format("{} ({}){}", stem, ++number, tail);
        if (take(numbered)) {
            return numbered;
        }
    }
}

} // namespace krl::engine
