#include "vesk/terminal/ProgressDisplay.h"

#include "engine/values/Text.h"
#include "vesk/terminal/Terminal.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace vesk {
namespace {

constexpr size_t kNarrowestBar = 8;
constexpr size_t kWidestBar = 30;

/// A terminal may wrap once its last column is written, so that one stays free; and two for the
/// "^C" that it shows.
size_t drawingColumns() {
    constexpr size_t kFree = 3;
    return std::max(terminalColumns(stderr), kFree) - kFree;
}

std::string bar(double fraction, size_t width) {
    const auto filled =
        std::min(width, static_cast<size_t>(std::floor(fraction * static_cast<double>(width))));
    return "[" + std::string(filled, '#') + std::string(width - filled, '.') + "]";
}

std::string joined(const std::string& left, const std::string& right) {
    return left.empty() ? right : right.empty() ? left : left + "  " + right;
}

/// The parts behind the bar, from the one that stays longest to the one that goes first.
std::string details(const Progress& progress, size_t parts) {
    const auto left = progress.secondsLeft();
    const auto rate = progress.bytesPerSecond();
    const std::array<std::string, 3> texts{
        left ? formatDuration(*left) + " left" : "",
        fmt::format("{} of {}", formatBytes(progress.bytesDone), formatBytes(progress.bytesTotal)),
        rate ? formatBytes(static_cast<uint64_t>(*rate)) + "/s" : ""};
    constexpr std::array<size_t, 3> kShownOrder{1, 2, 0};
    std::string result;
    for (const size_t index : kShownOrder) {
        result = joined(result, index < parts ? texts[index] : "");
    }
    return result;
}

std::string withName(const std::string& line, const std::string& name, size_t columns) {
    constexpr size_t kShortestName = 8;
    const size_t taken = displayWidth(line) + 2;
    return columns >= taken + kShortestName
               ? joined(line, fitted(forTerminal(name), columns - taken))
               : line;
}

} // namespace

std::string progressLine(const Progress& progress, size_t columns) {
    constexpr size_t kAroundBar = 2 * 2 + 2; // gaps and brackets
    const std::string counts = fmt::format("{}/{}", progress.filesDone, progress.filesTotal);
    const std::string percent =
        fmt::format("{:3}%", static_cast<int>(std::floor(progress.fraction() * 100)));
    for (const size_t parts : {3U, 2U, 1U, 0U}) {
        const std::string behind = joined(percent, details(progress, parts));
        const size_t used = displayWidth(counts) + kAroundBar + displayWidth(behind);
        if (columns >= used + kNarrowestBar) {
            const size_t width = std::min(kWidestBar, columns - used);
            const std::string line =
                joined(joined(counts, bar(progress.fraction(), width)), behind);
            return withName(line, progress.current, columns);
        }
    }
    return fitted(joined(counts, percent), columns);
}

ProgressDisplay::ProgressDisplay(const Output& output)
    : kind_(output.quiet()                       ? Kind::None
            : terminalUnderstandsEscapes(stderr) ? Kind::Bar
            : output.json()                      ? Kind::None
                                                 : Kind::Lines) {}

ProgressDisplay::~ProgressDisplay() {
    clear();
}

void ProgressDisplay::stage(const std::string& text) {
    if (kind_ == Kind::Bar) {
        draw(fitted(forTerminal(text), drawingColumns()));
    }
}

void ProgressDisplay::fileBegins(const Progress& progress) {
    if (kind_ == Kind::Lines) {
        writeText(stderr, fmt::format("vesk: uploading {}/{}: {}\n", progress.filesDone + 1,
                                      progress.filesTotal, forTerminal(progress.current)));
    }
    drawIfDue(progress);
}

void ProgressDisplay::fileEnds(const Progress& progress) {
    // Otherwise the next file begins right away, and the line is to bear its name.
    if (progress.filesDone == progress.filesTotal) {
        drawIfDue(progress);
    }
}

void ProgressDisplay::clear() {
    if (!drawn_.empty()) {
        writeText(stderr, "\r\x1b[K");
        std::fflush(stderr);
        drawn_.clear();
    }
}

void ProgressDisplay::drawIfDue(const Progress& progress) {
    constexpr std::chrono::milliseconds kBetweenDrawings{100};
    const auto now = Clock::now();
    const bool last = progress.filesDone == progress.filesTotal;
    if (kind_ != Kind::Bar || (!last && lastDrawn_ && now - *lastDrawn_ < kBetweenDrawings)) {
        return;
    }
    lastDrawn_ = now;
    draw(progressLine(progress, drawingColumns()));
}

void ProgressDisplay::draw(const std::string& line) {
    if (line != drawn_) {
        writeText(stderr, fmt::format("\r{}\x1b[K", line));
        std::fflush(stderr);
        drawn_ = line;
    }
}

} // namespace vesk
