#include "vesk/terminal/Output.h"

#include "engine/values/Text.h"
#include "vesk/terminal/Terminal.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vesk {
namespace {

constexpr char kRed[] = "\x1b[1;31m";
constexpr char kYellow[] = "\x1b[1;33m";
constexpr char kPlain[] = "\x1b[0m";

std::string dumped(const Json& json, int indent) {
    // Names that are no UTF-8 are shown with U+FFFD rather than not at all.
    return jsonForTerminal(
        json.dump(indent, ' ', /*ensure_ascii=*/false, Json::error_handler_t::replace));
}

std::string row(const std::vector<std::string>& cells, const std::vector<size_t>& widths,
                const std::vector<Table::Column>& columns) {
    std::string line;
    for (size_t i = 0; i < cells.size(); ++i) {
        const std::string gap(widths[i] - displayWidth(cells[i]), ' ');
        const bool right = columns[i].align == Table::Align::Right;
        line += i == 0 ? "" : "  ";
        line += right ? gap + cells[i] : cells[i] + gap;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

/// A list on the side, which must not push what matters off the screen.
void writeDetails(const std::vector<std::string>& details) {
    constexpr size_t kMost = 20;
    for (size_t i = 0; i < std::min(kMost, details.size()); ++i) {
        writeText(stderr, fmt::format("  {}\n", forTerminal(details[i])));
    }
    if (details.size() > kMost) {
        writeText(stderr, fmt::format("  and {} more\n", details.size() - kMost));
    }
}

} // namespace

Json errorJson(const Failure& failure, ExitCode code) {
    return {{"code", static_cast<int>(code)},
            {"name", exitCodeName(code)},
            {"message", failure.what()},
            {"hint", failure.advice()},
            {"details", failure.details()}};
}

std::string Table::text() const {
    std::vector<std::vector<std::string>> lines;
    if (std::any_of(columns_.begin(), columns_.end(),
                    [](const Column& column) { return !column.title.empty(); })) {
        auto& titles = lines.emplace_back();
        std::transform(columns_.begin(), columns_.end(), std::back_inserter(titles),
                       [](const Column& column) { return column.title; });
    }
    for (const auto& cells : rows_) {
        auto& line = lines.emplace_back();
        std::transform(cells.begin(), cells.end(), std::back_inserter(line),
                       [](const std::string& cell) { return forTerminal(cell); });
    }
    std::vector<size_t> widths(columns_.size());
    for (const auto& line : lines) {
        for (size_t i = 0; i < line.size(); ++i) {
            widths[i] = std::max(widths[i], displayWidth(line[i]));
        }
    }
    std::string result;
    for (const auto& line : lines) {
        result += row(line, widths, columns_);
    }
    return result;
}

Output::Output(Options options)
    : options_(options), colour_(terminalUnderstandsEscapes(stderr) && coloursWanted()) {}

void Output::line(std::string_view text) {
    if (!options_.json) {
        answer(forTerminal(text) + "\n");
    }
}

void Output::table(const Table& table) {
    if (!options_.json) {
        answer(table.text());
    }
}

void Output::summary(std::string_view text) {
    if (!options_.quiet) {
        line(text);
    }
}

void Output::sideLine(const char* colour, std::string_view label, std::string_view text) {
    flush(); // so that both streams stand in order where they meet
    std::string head = label.empty() ? "" : fmt::format("{}:", label);
    if (colour_ && colour != nullptr) {
        head = colour + head + kPlain;
    }
    writeText(stderr,
              fmt::format("vesk: {}{}{}\n", head, head.empty() ? "" : " ", forTerminal(text)));
}

void Output::note(std::string_view text) {
    if (!options_.quiet) {
        sideLine(nullptr, "", text);
    }
}

void Output::warning(std::string_view text, const std::vector<std::string>& details) {
    sideLine(kYellow, "warning", text);
    writeDetails(details);
}

void Output::document(const Json& document) {
    if (!options_.json) {
        return;
    }
    if (options_.event == nullptr) {
        answer(dumped(document, 2) + "\n");
        return;
    }
    Json object{{"event", options_.event}};
    object.update(document);
    objectLine(object);
}

void Output::objectLine(const Json& object) {
    answer(dumped(object, -1) + "\n");
    flush();
}

void Output::failureOfOne(const Failure& failure) {
    sideLine(kRed, "error", failure.what());
    writeDetails(failure.details());
    if (!failure.advice().empty()) {
        writeText(stderr, fmt::format("  {}\n", forTerminal(failure.advice())));
    }
}

void Output::failure(const Failure& failure, ExitCode code) {
    failureOfOne(failure);
    document({{"error", errorJson(failure, code)}});
}

void Output::answer(std::string_view text) {
    errno = 0;
    writeText(stdout, text);
    noteWriteError();
}

void Output::flush() {
    errno = 0;
    std::fflush(stdout);
    noteWriteError();
}

void Output::noteWriteError() {
    if (!isWanted() && writeError_ == 0) {
        writeError_ = errno;
    }
}

bool Output::isWanted() const {
    return std::ferror(stdout) == 0;
}

void Output::finish() {
    flush();
    // A reader that has seen enough (a pager, head) is no failure.
    if (!isWanted() && writeError_ != EPIPE) {
        throw Failure(FailureKind::Unexpected, fmt::format("the output could not be written: {}",
                                                           std::strerror(writeError_)));
    }
}

} // namespace vesk
