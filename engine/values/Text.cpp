#include "engine/values/Text.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <iterator>
#include <locale.h>
#include <memory>
#include <utility>

namespace krl::engine {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

struct Decoded {
    char32_t character;
    size_t length; // 0: no UTF-8 here
};

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

Decoded decode(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    if (first < 0x80) {
        return {first, 1};
    }
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) {
        return {kReplacement, 0};
    }
    char32_t value = first & (0x7FU >> length);
    for (size_t i = 1; i < length; ++i) {
        if (!isContinuation(text[i])) {
            return {kReplacement, 0};
        }
        value = (value << 6U) | (static_cast<unsigned char>(text[i]) & 0x3FU);
    }
    constexpr std::array<char32_t, 5> kSmallest{0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (value < kSmallest[length] || value > 0x10FFFF || surrogate) {
        return {kReplacement, 0};
    }
    return {value, length};
}

template <typename Take>
void forEachCharacter(std::string_view text, Take take) {
    while (!text.empty()) {
        const Decoded decoded = decode(text);
        const size_t length = std::max<size_t>(decoded.length, 1);
        take(decoded, text.substr(0, length));
        text.remove_prefix(length);
    }
}

void append(std::string& text, char32_t character) {
    const auto byte = [&](char32_t bits) { text += static_cast<char>(bits); };
    if (character < 0x80) {
        byte(character);
    } else if (character < 0x800) {
        byte(0xC0 | (character >> 6U));
        byte(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        byte(0xE0 | (character >> 12U));
        byte(0x80 | ((character >> 6U) & 0x3F));
        byte(0x80 | (character & 0x3F));
    } else {
        byte(0xF0 | (character >> 18U));
        byte(0x80 | ((character >> 12U) & 0x3F));
        byte(0x80 | ((character >> 6U) & 0x3F));
        byte(0x80 | (character & 0x3F));
    }
}

bool between(char32_t character, char32_t first, char32_t last) {
    return character >= first && character <= last;
}

std::string visibleEscape(char32_t character) {
    const auto value = static_cast<uint32_t>(character);
    return value < 0x80      ? fmt::format("\\x{:02x}", value)
           : value <= 0xFFFF ? fmt::format("\\u{:04x}", value)
                             : fmt::format("\\U{:08x}", value);
}

std::string jsonEscape(char32_t character) {
    const auto value = static_cast<uint32_t>(character);
    return value <= 0xFFFF ? fmt::format("\\u{:04x}", value)
                           : fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + ((value - 0x10000) >> 10U),
                                         0xDC00 + ((value - 0x10000) & 0x3FFU));
}

/// Control characters, and what is shown as nothing, as a gap, or in another order. Joiners and
/// variation selectors are not here, because some stand where they belong.
constexpr std::array<std::pair<char32_t, char32_t>, 25> kUnsafe{{
    {0x00, 0x1F},       {0x7F, 0x9F},       {0xAD, 0xAD},       {0x34F, 0x34F},
    {0x61C, 0x61C},     {0x115F, 0x1160},   {0x17B4, 0x17B5},   {0x180B, 0x180F},
    {0x200B, 0x200B},   {0x200E, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},
    {0x2800, 0x2800},   {0x3164, 0x3164},   {0xFDD0, 0xFDEF},   {0xFEFF, 0xFEFF},
    {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFB},   {0xFFFE, 0xFFFF},   {0x13430, 0x1343F},
    {0x1BCA0, 0x1BCA3}, {0x1D159, 0x1D159}, {0x1D173, 0x1D17A}, {0xE0000, 0xE00FF},
    {0xE01F0, 0xE0FFF},
}};

bool isJoiner(char32_t character) {
    return between(character, 0x200C, 0x200D);
}

bool isVariationSelector(char32_t character) {
    return between(character, 0xFE00, 0xFE0F) || between(character, 0xE0100, 0xE01EF);
}

/// Joiners and variation selectors act on the character before them. Where that is none that they
/// can act on, they only make two texts differ that look alike.
bool isOutOfPlace(char32_t character, char32_t before) {
    const bool onKey = between(before, U'0', U'9') || before == U'#' || before == U'*';
    if (isJoiner(character)) {
        return before < 0x80 || isJoiner(before);
    }
    return isVariationSelector(character) && !(onKey && character == 0xFE0F) &&
           (before < 0x80 || isJoiner(before) || isVariationSelector(before));
}

/// Text with its unsafe characters, and bytes that are no UTF-8, as something else.
template <typename Escape>
std::string escaped(std::string_view utf8, Escape escape) {
    std::string result;
    result.reserve(utf8.size());
    char32_t before = 0;
    forEachCharacter(utf8, [&](const Decoded& decoded, std::string_view bytes) {
        const char32_t character = decoded.character;
        const bool isHarmful =
            decoded.length == 0 || isUnsafe(character) || isOutOfPlace(character, before);
        result += isHarmful ? escape(decoded, bytes) : std::string(bytes);
        before = isHarmful ? 0 : character;
    });
    return result;
}

/// wcwidth and towlower know characters outside ASCII only in a locale that has them, whatever the
/// user's own is. Loaded once; it never goes.
locale_t utf8Locale() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

/// This thread in that locale, for a scope.
class Utf8Scope {
public:
    Utf8Scope() : previous_(uselocale(utf8Locale())) {}

    ~Utf8Scope() { uselocale(previous_); }

    Utf8Scope(const Utf8Scope&) = delete;
    Utf8Scope& operator=(const Utf8Scope&) = delete;

private:
    locale_t previous_;
};

size_t columnsOf(char32_t character) {
    constexpr char32_t kEmojiPresentation = 0xFE0F;
    if (character == kEmojiPresentation) {
        return 0;
    }
    return static_cast<size_t>(std::max(0, ::wcwidth(static_cast<wchar_t>(character))));
}

std::u32string lowered(std::string_view text) {
    const Utf8Scope scope;
    std::u32string result = codePoints(text);
    for (char32_t& character : result) {
        character = static_cast<char32_t>(std::towlower(static_cast<wint_t>(character)));
    }
    return result;
}

/// Insertions, deletions and replacements between two texts.
size_t editDistance(std::u32string_view a, std::u32string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

std::string normalized(std::string_view utf8, int how) {
    // Putting many marks of one character in order takes the square of their number.
    constexpr size_t kLongest = 4096;
    if (utf8.size() > kLongest) {
        return std::string(utf8);
    }
    utf8proc_uint8_t* result = nullptr;
    const utf8proc_ssize_t length = utf8proc_map(
        reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()),
        static_cast<utf8proc_ssize_t>(utf8.size()), &result, static_cast<utf8proc_option_t>(how));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(result, &std::free);
    return length < 0
               ? std::string(utf8)
               : std::string(reinterpret_cast<const char*>(result), static_cast<size_t>(length));
}

} // namespace

std::u32string codePoints(std::string_view utf8) {
    std::u32string result;
    forEachCharacter(
        utf8, [&](const Decoded& decoded, std::string_view) { result += decoded.character; });
    return result;
}

std::string utf8(std::u32string_view text) {
    std::string result;
    for (const char32_t character : text) {
        const bool valid = character <= 0x10FFFF && !between(character, 0xD800, 0xDFFF);
        append(result, valid ? character : kReplacement);
    }
    return result;
}

bool isUtf8(std::string_view bytes) {
    bool wellFormed = true;
    forEachCharacter(bytes, [&](const Decoded& decoded, std::string_view) {
        wellFormed = wellFormed && decoded.length > 0;
    });
    return wellFormed;
}

std::string composed(std::string_view utf8) {
    return normalized(utf8, UTF8PROC_STABLE | UTF8PROC_COMPOSE);
}

std::string caseless(std::string_view utf8) {
    return normalized(utf8, UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD);
}

bool isUnsafe(char32_t character) {
    const auto range = std::upper_bound(
        kUnsafe.begin(), kUnsafe.end(), character,
        [](char32_t wanted, const auto& candidate) { return wanted < candidate.first; });
    return range != kUnsafe.begin() && character <= std::prev(range)->second;
}

std::string forTerminal(std::string_view utf8) {
    return escaped(utf8, [](const Decoded& decoded, std::string_view bytes) {
        return decoded.length == 0 ? fmt::format("\\x{:02x}", static_cast<unsigned char>(bytes[0]))
                                   : visibleEscape(decoded.character);
    });
}

std::string jsonForTerminal(std::string_view json) {
    return escaped(json, [](const Decoded& decoded, std::string_view bytes) {
        // Line ends between the values stay; a document has no bytes that are no UTF-8.
        return decoded.length == 0 || decoded.character < 0x7F ? std::string(bytes)
                                                               : jsonEscape(decoded.character);
    });
}

size_t displayWidth(std::string_view utf8) {
    const Utf8Scope scope;
    size_t columns = 0;
    forEachCharacter(utf8, [&](const Decoded& decoded, std::string_view) {
        columns += columnsOf(decoded.character);
    });
    return columns;
}

std::string fitted(std::string_view utf8, size_t columns) {
    if (displayWidth(utf8) <= columns) {
        return std::string(utf8);
    }
    if (columns == 0) {
        return {};
    }
    const Utf8Scope scope;
    std::string result;
    size_t used = 0;
    bool full = false;
    forEachCharacter(utf8, [&](const Decoded& decoded, std::string_view bytes) {
        const size_t width = columnsOf(decoded.character);
        full = full || used + width > columns - 1;
        if (!full) {
            used += width;
            result += bytes;
        }
    });
    return result + "…";
}

std::string padded(std::string_view utf8, size_t columns) {
    const size_t width = displayWidth(utf8);
    return std::string(utf8) + std::string(columns > width ? columns - width : 0, ' ');
}

std::string formatBytes(uint64_t bytes) {
    constexpr std::array<const char*, 4> kUnits{"KiB", "MiB", "GiB", "TiB"};
    if (bytes < 1024) {
        return fmt::format("{} B", bytes);
    }
    double value = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    // 1023.95 would be shown as 1024.0
    while (value >= 1023.95 && unit + 1 < kUnits.size()) {
        value /= 1024;
        ++unit;
    }
    return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string formatDuration(double seconds) {
    constexpr double kLongest = 99 * 3600.0;
    const auto whole = static_cast<uint64_t>(std::clamp(seconds, 0.0, kLongest) + 0.5);
    const uint64_t hours = whole / 3600;
    const uint64_t minutes = whole / 60 % 60;
    if (hours > 0) {
        return fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60);
    }
    return fmt::format("{}:{:02}", minutes, whole % 60);
}

std::string counted(size_t count, std::string_view singular, std::string_view plural) {
    if (count == 1) {
        return fmt::format("1 {}", singular);
    }
    return plural.empty() ? fmt::format("{} {}s", count, singular)
                          : fmt::format("{} {}", count, plural);
}

std::string quotedList(const std::vector<std::string>& names, size_t limit) {
    std::string result;
    const size_t shown = names.size() > limit ? limit - 1 : names.size();
    for (size_t i = 0; i < shown; ++i) {
        const bool last = i + 1 == names.size();
        result += i == 0 ? "" : last ? " and " : ", ";
        result += fmt::format("\"{}\"", names[i]);
    }
    if (shown < names.size()) {
        result += fmt::format(" and {} more", names.size() - shown);
    }
    return result;
}

std::vector<std::string> closeNames(std::string_view wanted,
                                    const std::vector<std::string>& candidates) {
    constexpr size_t kMost = 3;
    const std::u32string target = lowered(wanted);
    const size_t tolerated = std::max<size_t>(1, target.size() / 3);
    std::vector<std::pair<size_t, std::string>> close;
    for (const std::string& candidate : candidates) {
        const std::u32string text = lowered(candidate);
        const bool part = target.size() >= 3 && text.find(target) != std::u32string::npos;
        const size_t distance = editDistance(target, text);
        if (part || distance <= tolerated) {
            close.emplace_back(distance, candidate);
        }
    }
    std::stable_sort(close.begin(), close.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> result;
    for (size_t i = 0; i < std::min(kMost, close.size()); ++i) {
        result.push_back(close[i].second);
    }
    return result;
}

} // namespace krl::engine
