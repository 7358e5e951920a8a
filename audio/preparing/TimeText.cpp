#include "audio/preparing/TimeText.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace krl::audio {
namespace {

/// Digits, with a fraction in the last part.
std::optional<double> number(std::string_view text, bool fraction) {
    const bool plain = !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return (c >= '0' && c <= '9') || (fraction && c == '.');
    });
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (!plain || error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace

std::optional<double> secondsIn(std::string_view text) {
    constexpr double kSixty = 60;
    constexpr int kMostParts = 3;
    const bool fromEnd = text.starts_with('-');
    text.remove_prefix(fromEnd ? 1 : 0);
    double seconds = 0;
    for (int part = 0; part < kMostParts; ++part) {
        const size_t colon = text.find(':');
        const bool last = colon == std::string_view::npos;
        const auto value = number(text.substr(0, colon), last);
        if (!value || (part > 0 && *value >= kSixty)) {
            return std::nullopt;
        }
        seconds = seconds * kSixty + *value;
        if (last) {
            return fromEnd ? -seconds : seconds;
        }
        text.remove_prefix(colon + 1);
    }
    return std::nullopt;
}

} // namespace krl::audio
