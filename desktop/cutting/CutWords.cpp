#include "desktop/cutting/CutWords.h"

#include "desktop/session/Translation.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <cmath>

namespace krl::desktop {

std::string momentText(double seconds) {
    constexpr long kMinute = 6000;
    constexpr long kHour = 60 * kMinute;
    const long hundredths = std::lround(seconds * 100);
    const long rest = hundredths % kMinute;
    std::string text = fmt::format("{:02}.{:02}", rest / 100, rest % 100);
    if (text.back() == '0') {
        text.pop_back();
    }
    const long minutes = hundredths % kHour / kMinute;
    return hundredths < kHour ? fmt::format("{}:{}", minutes, text)
                              : fmt::format("{}:{:02}:{}", hundredths / kHour, minutes, text);
}

std::string cutText(const Cut& cut) {
    return fmt::format(fmt::runtime(_("{:.1f} seconds · about {}")), cut.length(),
                       engine::formatBytes(cut.estimatedBytes()));
}

std::string startText(const Cut& cut) {
    return fmt::format(fmt::runtime(_("Start {}")), momentText(cut.start()));
}

std::string endText(const Cut& cut) {
    return fmt::format(fmt::runtime(_("End {}")), momentText(cut.end()));
}

} // namespace krl::desktop
