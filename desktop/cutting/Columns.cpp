#include "desktop/cutting/Columns.h"

#include <algorithm>
#include <cmath>

namespace krl::desktop {
namespace {

constexpr float kFullScale = 32767;

} // namespace

float loudestOf(const audio::Peaks& peaks) {
    int loudest = 0;
    for (const audio::Peak& peak : peaks.peaks) {
        loudest = std::max({loudest, -static_cast<int>(peak.low), static_cast<int>(peak.high)});
    }
    return loudest == 0 ? 1 : static_cast<float>(loudest) / kFullScale;
}

void fillColumns(const audio::Peaks& peaks, const View& view, float loudest,
                 std::vector<Column>& columns) {
    const auto width = static_cast<double>(columns.size());
    const size_t count = peaks.peaks.size();
    const auto peakAt = [&](size_t column) {
        const double time = view.timeAt(static_cast<double>(column), width);
        return static_cast<size_t>(std::floor(time / peaks.secondsPerPeak + 1e-9));
    };
    for (size_t i = 0; i < columns.size(); ++i) {
        const size_t from = std::min(peakAt(i), count);
        const size_t to = std::min(std::max(peakAt(i + 1), from + 1), count);
        int low = from < to ? peaks.peaks[from].low : 0;
        int high = from < to ? peaks.peaks[from].high : 0;
        for (size_t peak = from; peak < to; ++peak) {
            low = std::min<int>(low, peaks.peaks[peak].low);
            high = std::max<int>(high, peaks.peaks[peak].high);
        }
        columns[i] = {static_cast<float>(low) / kFullScale / loudest,
                      static_cast<float>(high) / kFullScale / loudest};
    }
}

} // namespace krl::desktop
