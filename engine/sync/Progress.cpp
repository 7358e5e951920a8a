#include "engine/sync/Progress.h"

#include <algorithm>

namespace krl::engine {

double Progress::fraction() const {
    // A file that grew while it was sent must not take the bar beyond its end.
    if (bytesTotal > 0) {
        return std::min(1.0, static_cast<double>(bytesDone) / static_cast<double>(bytesTotal));
    }
    return filesTotal > 0
               ? std::min(1.0, static_cast<double>(filesDone) / static_cast<double>(filesTotal))
               : 1.0;
}

std::optional<double> Progress::bytesPerSecond() const {
    if (bytesDone == 0 || elapsedSeconds <= 0) {
        return std::nullopt;
    }
    return static_cast<double>(bytesDone) / elapsedSeconds;
}

std::optional<double> Progress::secondsLeft() const {
    const auto rate = bytesPerSecond();
    if (!rate || bytesDone > bytesTotal) {
        return std::nullopt;
    }
    return static_cast<double>(bytesTotal - bytesDone) / *rate;
}

} // namespace krl::engine
