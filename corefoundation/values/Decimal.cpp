#include "corefoundation/values/Decimal.h"

#include <charconv>
#include <cstdlib>

namespace krl::cf {

locale_t cLocale() {
    static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return locale;
}

double parseDecimal(const std::string& text) {
    return strtod_l(text.c_str(), nullptr, cLocale());
}

std::string shortestDecimal(double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return {text, end};
}

std::string exactDecimal(double value) {
    char text[64];
    const auto end =
        std::to_chars(text, text + sizeof text, value, std::chars_format::general, 17).ptr;
    return {text, end};
}

} // namespace krl::cf
