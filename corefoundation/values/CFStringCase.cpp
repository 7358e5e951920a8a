#include "corefoundation/values/CFStringInternal.h"
#include "corefoundation/values/Utf8.h"
#include "corefoundation/values/unicode/CaseTables.h"

#include <algorithm>
#include <compare>
#include <vector>

namespace krl::cf {
namespace {

using CodePoints = std::vector<UTF32Char>;

struct CaseMapping {
    std::span<const CaseRun> runs;
    std::span<const CaseExpansion> expansions;
};

constexpr CaseMapping kLower{kLowerRuns, kLowerExpansions};
constexpr CaseMapping kUpper{kUpperRuns, kUpperExpansions};
constexpr CaseMapping kFold{kFoldRuns, kFoldExpansions};

constexpr UTF32Char kCapitalSigma = 0x3A3;
constexpr UTF32Char kFinalSigma = 0x3C2;

/// Unpaired surrogates stand for themselves.
CodePoints codePointsOf(const Text& text) {
    CodePoints result;
    result.reserve(static_cast<size_t>(text.length()));
    for (CFIndex i = 0; i < text.length(); ++i) {
        const bool paired =
            isHighSurrogate(text[i]) && i + 1 < text.length() && isLowSurrogate(text[i + 1]);
        result.push_back(paired ? joinSurrogates(text[i], text[i + 1]) : text[i]);
        i += paired ? 1 : 0;
    }
    return result;
}

void appendMapped(CodePoints& result, UTF32Char character, const CaseMapping& mapping) {
    const auto run = std::lower_bound(
        mapping.runs.begin(), mapping.runs.end(), character,
        [](const CaseRun& candidate, UTF32Char value) { return candidate.last < value; });
    if (run != mapping.runs.end() && character >= run->first &&
        (character - run->first) % run->stride == 0) {
        result.push_back(static_cast<UTF32Char>(static_cast<int32_t>(character) + run->distance));
        return;
    }
    const auto expansion =
        std::lower_bound(mapping.expansions.begin(), mapping.expansions.end(), character,
                         [](const CaseExpansion& candidate, UTF32Char value) {
                             return candidate.character < value;
                         });
    if (expansion == mapping.expansions.end() || expansion->character != character) {
        result.push_back(character);
        return;
    }
    for (const UTF32Char part : expansion->expansion) {
        if (part != 0) {
            result.push_back(part);
        }
    }
}

CodePoints mapped(const CodePoints& text, const CaseMapping& mapping) {
    CodePoints result;
    result.reserve(text.size());
    for (const UTF32Char character : text) {
        appendMapped(result, character, mapping);
    }
    return result;
}

// ---------------------------------------------------------------------------- the sigma at a
// word's end

bool isCased(UTF32Char character) {
    const CodePoints self{character};
    return mapped(self, kLower) != self || mapped(self, kUpper) != self;
}

/// Marks and signs that do not end a word.
bool isPassedOver(UTF32Char character) {
    return (character >= 0x300 && character <= 0x36F) || character == '\'' || character == 0x2019 ||
           character == '.' || character == ':' || character == 0xB7 || character == 0xAD;
}

/// Whether the nearest character that counts, from an end of the row on, belongs to a word.
template <typename Iterator>
bool continuesWord(Iterator from, Iterator to) {
    const auto next = std::find_if_not(from, to, isPassedOver);
    return next != to && isCased(*next);
}

/// At the end of a word sigma has a form of its own, which no mapping of characters knows.
void setFinalSigmas(CodePoints& original) {
    for (auto at = original.begin(); at != original.end(); ++at) {
        if (*at == kCapitalSigma &&
            continuesWord(std::make_reverse_iterator(at), original.rend()) &&
            !continuesWord(at + 1, original.end())) {
            *at = kFinalSigma;
        }
    }
}

void replaceWith(CFMutableStringRef string, const CodePoints& text) {
    std::vector<UniChar> units;
    units.reserve(text.size());
    for (const UTF32Char character : text) {
        UniChar pair[2];
        units.insert(units.end(), pair, pair + encodeUtf16(character, pair));
    }
    replaceContents(string, units);
}

// ---------------------------------------------------------------------------- comparing

CodePoints unitsOf(const Text& text) {
    CodePoints units(static_cast<size_t>(text.length()));
    for (size_t i = 0; i < units.size(); ++i) {
        units[i] = text[static_cast<CFIndex>(i)];
    }
    return units;
}

bool isAsciiDigit(UTF32Char character) {
    return character >= '0' && character <= '9';
}

using Position = CodePoints::const_iterator;

/// The digits of the number at a place, without leading zeros; moves behind them.
std::span<const UTF32Char> takeNumber(Position& at, Position end) {
    const Position last = std::find_if_not(at, end, isAsciiDigit);
    const Position first = std::find_if(at, last, [](UTF32Char digit) { return digit != '0'; });
    at = last;
    return {first, last};
}

CFComparisonResult asResult(std::strong_ordering order) {
    return order < 0 ? kCFCompareLessThan : order > 0 ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

std::strong_ordering compareNumbers(std::span<const UTF32Char> left,
                                    std::span<const UTF32Char> right) {
    if (left.size() != right.size()) {
        return left.size() <=> right.size();
    }
    return std::lexicographical_compare_three_way(left.begin(), left.end(), right.begin(),
                                                  right.end());
}

std::strong_ordering compareWithNumbers(const CodePoints& left, const CodePoints& right) {
    Position one = left.begin();
    Position other = right.begin();
    while (one != left.end() && other != right.end()) {
        const bool bothNumbers = isAsciiDigit(*one) && isAsciiDigit(*other);
        const auto order = bothNumbers ? compareNumbers(takeNumber(one, left.end()),
                                                        takeNumber(other, right.end()))
                                       : *one++ <=> *other++;
        if (order != 0) {
            return order;
        }
    }
    return left.end() - one <=> right.end() - other;
}

} // namespace

CFComparisonResult compareWithOptions(const Text& left, const Text& right,
                                      CFStringCompareFlags options) {
    const bool folds = (options & kCFCompareCaseInsensitive) != 0;
    const CodePoints one = folds ? mapped(codePointsOf(left), kFold) : unitsOf(left);
    const CodePoints other = folds ? mapped(codePointsOf(right), kFold) : unitsOf(right);
    if ((options & kCFCompareNumerically) != 0) {
        return asResult(compareWithNumbers(one, other));
    }
    return asResult(
        std::lexicographical_compare_three_way(one.begin(), one.end(), other.begin(), other.end()));
}

} // namespace krl::cf

using namespace krl::cf;

void CFStringLowercase(CFMutableStringRef string, CFLocaleRef) {
    CodePoints text = codePointsOf(Text(string));
    setFinalSigmas(text);
    replaceWith(string, mapped(text, kLower));
}

void CFStringUppercase(CFMutableStringRef string, CFLocaleRef) {
    replaceWith(string, mapped(codePointsOf(Text(string)), kUpper));
}
