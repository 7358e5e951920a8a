#pragma once

#include "vesk/invocation/ExitCodes.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace vesk {

using Json = nlohmann::ordered_json;

/// Rows of cells, shown with aligned columns; without a line of titles when all are empty.
class Table {
public:
    enum class Align { Left, Right };

    struct Column {
        std::string title;
        Align align = Align::Left;
    };

    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

    /// One line each, the titles first; cells made safe for a terminal, no spaces at line ends.
    std::string text() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

/// A failure as an object of JSON.
Json errorJson(const Failure& failure, ExitCode code);

/// Where everything that vesk says goes: what was asked for to standard output, as text or as JSON;
/// notes, warnings and failures to standard error. Whatever it is given is made safe for a
/// terminal.
class Output {
public:
    struct Options {
        bool json = false;
        bool quiet = false;
        const char* event = nullptr; ///< of --json, that a document is of; null: the only one
    };

    explicit Output(Options options);

    bool json() const { return options_.json; }

    bool quiet() const { return options_.quiet; }

    /// A line that was asked for. Not with --json.
    void line(std::string_view text);

    /// A table that was asked for. Not with --json.
    void table(const Table& table);

    /// A line on what was done. Not with --quiet or --json.
    void summary(std::string_view text);

    /// A line on the side, to standard error. Not with --quiet.
    void note(std::string_view text);

    /// Something to know, to standard error, always. Of the details 20 are shown, and how many
    /// more there are.
    void warning(std::string_view text, const std::vector<std::string>& details = {});

    /// The one document of --json, or an object on a line with the event first; nothing without
    /// --json.
    void document(const Json& document);

    /// One object of --json on a line of its own, written out at once.
    void objectLine(const Json& object);

    /// Why the command stops, and with which code: to standard error, details as of a warning; with
    /// --json as the document too, with all of them.
    void failure(const Failure& failure, ExitCode code);

    /// Why one thing of several was not done, while the others are: to standard error, details as of
    /// a warning.
    void failureOfOne(const Failure& failure);

    /// Writes out what is pending, so that a reader at the other end of a pipe sees it now.
    void flush();

    /// Whether standard output has taken all so far. A reader that has seen enough closes it.
    bool isWanted() const;

    /// Writes out what is pending at the end.
    /// @throw Failure when standard output does not take it
    void finish();

private:
    /// To standard output.
    void answer(std::string_view text);

    void noteWriteError();

    void sideLine(const char* colour, std::string_view label, std::string_view text);

    Options options_;
    bool colour_;
    int writeError_ = 0; ///< the first one of standard output
};

} // namespace vesk
