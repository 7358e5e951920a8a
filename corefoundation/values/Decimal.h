/// Numbers as text, whatever the process's locale. Internal.
#pragma once

#include <locale.h>
#include <string>

namespace krl::cf {

/// The locale in which numbers have a point.
locale_t cLocale();

/// The value of a decimal number; beyond a double's range infinite or zero.
double parseDecimal(const std::string& text);

/// The shortest text that reads back as the same value.
std::string shortestDecimal(double value);

/// As printf's %.17g gives it in the C locale.
std::string exactDecimal(double value);

} // namespace krl::cf
