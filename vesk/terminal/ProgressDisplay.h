#pragma once

#include "engine/sync/Progress.h"
#include "vesk/terminal/Output.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace vesk {

/// The progress as one line that is no wider than so many columns. What there is no room for is
/// left out, the least important first: name, rate, bytes, time left, the bar.
std::string progressLine(const Progress& progress, size_t columns);

/// Shows progress on standard error: a bar that is drawn anew on a terminal, one line a file
/// elsewhere.
class ProgressDisplay {
public:
    explicit ProgressDisplay(const Output& output);
    ~ProgressDisplay();
    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    /// What is going on besides the transfer, such as waiting for the lock.
    void stage(const std::string& text);

    void fileBegins(const Progress& progress);

    void fileMoves(const Progress& progress) { drawIfDue(progress); }

    void fileEnds(const Progress& progress);

    /// Takes the bar off the terminal.
    void clear();

private:
    using Clock = std::chrono::steady_clock;
    enum class Kind { None, Lines, Bar };

    void draw(const std::string& line);
    void drawIfDue(const Progress& progress);

    Kind kind_;
    std::string drawn_; ///< what stands on the terminal's last line
    std::optional<Clock::time_point> lastDrawn_;
};

} // namespace vesk
