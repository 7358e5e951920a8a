#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <cwctype>
#include <locale.h>
#include <utility>

namespace vesk {
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
    return value < 0x80 ? fmt::format("\\x{:02x}", value) : fmt::format("\\u{:04x}", value);
}

/// wcwidth and towlower know characters outside ASCII only in a locale that has them, whatever the
/// user's own is.
class Utf8Locale {
public:
    Utf8Locale() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
        previous_ = locale_ != nullptr ? uselocale(locale_) : nullptr;
    }

    ~Utf8Locale() {
        if (locale_ != nullptr) {
            uselocale(previous_);
            freelocale(locale_);
        }
    }

    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    locale_t locale_;
    locale_t previous_ = nullptr;
};

size_t columnsOf(char32_t character) {
    constexpr char32_t kEmojiPresentation = 0xFE0F;
    if (character == kEmojiPresentation) {
        return 0;
    }
    return static_cast<size_t>(std::max(0, ::wcwidth(static_cast<wchar_t>(character))));
}

std::u32string lowered(std::string_view text) {
    const Utf8Locale locale;
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

bool isUnsafe(char32_t character) {
    return character < 0x20 || between(character, 0x7F, 0x9F) || character == 0xAD ||
           character == 0x61C || character == 0x180E || character == 0x200B ||
           between(character, 0x200E, 0x200F) || between(character, 0x2028, 0x202E) ||
           between(character, 0x2060, 0x206F) || character == 0xFEFF ||
           between(character, 0xFFF9, 0xFFFB) || character == 0xE0001;
}

std::string forTerminal(std::string_view utf8) {
    std::string result;
    forEachCharacter(utf8, [&](const Decoded& decoded, std::string_view bytes) {
        if (decoded.length == 0) {
            result += fmt::format("\\x{:02x}", static_cast<unsigned char>(bytes[0]));
        } else if (isUnsafe(decoded.character)) {
            result += visibleEscape(decoded.character);
        } else {
            result += bytes;
        }
    });
    return result;
}

std::string jsonForTerminal(std::string_view json) {
    std::string result;
    forEachCharacter(json, [&](const Decoded& decoded, std::string_view bytes) {
        const auto value = static_cast<uint32_t>(decoded.character);
        if (value < 0x7F || !isUnsafe(decoded.character)) {
            result += bytes; // line ends between the values stay
        } else if (value > 0xFFFF) {
            result += fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + ((value - 0x10000) >> 10U),
                                  0xDC00 + ((value - 0x10000) & 0x3FFU));
        } else {
            result += fmt::format("\\u{:04x}", value);
        }
    });
    return result;
}

size_t displayWidth(std::string_view utf8) {
    const Utf8Locale locale;
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
    const Utf8Locale locale;
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

} // namespace vesk
