#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace krl::engine {

/// How far a transfer is: a value apart from the transfer itself.
struct Progress {
    size_t filesTotal = 0;
    size_t filesDone = 0;
    uint64_t bytesTotal = 0;
    uint64_t bytesDone = 0;
    double elapsedSeconds = 0;
    std::string current; ///< name of the file under way

    /// Part done, 0 to 1; by files where there are no bytes to send.
    double fraction() const;

    /// Bytes a second so far; none before the first file has arrived.
    std::optional<double> bytesPerSecond() const;

    /// Seconds that the rest takes at that rate.
    std::optional<double> secondsLeft() const;
};

} // namespace krl::engine
