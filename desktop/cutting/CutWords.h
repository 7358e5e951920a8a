#pragma once

#include "desktop/cutting/Cut.h"

#include <string>

namespace krl::desktop {

/// "1:02.5", "0:00.0", "1:00:00.25".
std::string momentText(double seconds);

/// "30.0 s · about 592.2 KiB".
std::string cutText(const Cut& cut);

/// "Start 1:02.5" and "End 1:32.5", as a screen reader says them.
std::string startText(const Cut& cut);
std::string endText(const Cut& cut);

} // namespace krl::desktop
