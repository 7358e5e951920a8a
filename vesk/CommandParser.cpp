#include "vesk/CommandParser.h"

#include "audio/judging/PlayedFormats.h"
#include "audio/preparing/TimeText.h"
#include "engine/errors/Failure.h"
#include "engine/values/Text.h"
#include "vesk/CommandTable.h"
#include "vesk/terminal/Output.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

namespace vesk {
namespace {

constexpr char kDescription[] =
    R"(vesk: custom ringtones on early iPhones (firmware 1.0.x and 1.1.x)

Looks at the phone on this computer's USB, shows its ringtones, and adds, removes
or replaces them. The phone has to be paired (vesk pair); if
something does not work, vesk doctor says why.
)";

struct SecondsOptions {
    double timeout = 0;
    double wait = 2;
};

std::chrono::milliseconds milliseconds(double seconds) {
    return std::chrono::milliseconds{std::llround(seconds * 1000)};
}

/// The commands with their help texts. Options go before or after a command's name.
class Parser {
public:
    explicit Parser(Options& options) : options_(options), app_(kDescription, "vesk") {
        app_.require_subcommand(1);
        app_.fallthrough();
        app_.get_formatter()->label("SUBCOMMAND", "COMMAND");
        app_.get_formatter()->column_width(22);
        app_.set_help_flag("-h,--help", "Show this help");
        app_.set_version_flag("--version", "vesk " VESK_VERSION, "Show the version");
        app_.footer(exitCodeHelp());
        addGlobalOptions();
        addCommands();
    }

    /// @throw CLI::ParseError also for --help and --version
    void parse(int argc, char** argv) {
        app_.parse(argc, argv);
        if (timeout_->count() > 0) {
            options_.timeout = milliseconds(seconds_.timeout);
        }
        options_.phone.wait = milliseconds(seconds_.wait);
        requireCombination();
        requirePreparing();
    }

    /// Prints help, version or the error, and returns what to exit with.
    ExitCode explain(const CLI::ParseError& error, Output& output) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            app_.exit(error);
            return ExitCode::Success;
        }
        output.failure({FailureKind::Unexpected, messageFor(error),
                        fmt::format("{} --help shows what there is.", fmt::join(chosen(), " "))},
                       ExitCode::Usage);
        return ExitCode::Usage;
    }

    CommandEntry tree() const { return entryOf(app_); }

private:
    CommandEntry entryOf(const CLI::App& app) const {
        CommandEntry entry{.name = app.get_name(), .summary = app.get_description()};
        if (const auto row = rows_.find(&app); row != rows_.end()) {
            entry.promise = row->second->promise;
            entry.writes = row->second->writes;
        } else if (&app == plugin_) {
            entry.promise = kPluginPromise;
        }
        for (const CLI::Option* option : app.get_options()) {
            if (option->get_positional()) {
                entry.arguments.push_back({option->get_name(/*positional=*/true),
                                           option->get_description(), option->get_required(),
                                           option->get_expected_max() > 1});
            } else {
                entry.options.push_back(
                    {namesOf(*option), option->get_type_name(), option->get_description()});
            }
        }
        for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
            entry.commands.push_back(entryOf(*command));
        }
        return entry;
    }

    static std::vector<std::string> namesOf(const CLI::Option& option) {
        std::vector<std::string> names;
        for (const std::string& name : option.get_snames()) {
            names.push_back("-" + name);
        }
        for (const std::string& name : option.get_lnames()) {
            names.push_back("--" + name);
        }
        return names;
    }

    /// "vesk" and the commands that were understood.
    std::vector<std::string> chosen() const {
        std::vector<std::string> names;
        for (const CLI::App* app = &app_; app != nullptr; app = commandOf(*app)) {
            names.push_back(app->get_name());
        }
        return names;
    }

    /// The command that was given for an app or a family; null when there was none.
    static const CLI::App* commandOf(const CLI::App& app) {
        const std::vector<CLI::App*> commands = app.get_subcommands();
        return commands.empty() ? nullptr : commands.front();
    }

    /// The parser's library has words of its own, which nobody understands who does not know it.
    std::string messageFor(const CLI::ParseError& error) const {
        switch (static_cast<CLI::ExitCodes>(error.get_exit_code())) {
        case CLI::ExitCodes::RequiredError:
            return missingText();
        case CLI::ExitCodes::ExtrasError:
            return fmt::format("\"{}\" does not take {}", chosen().back(),
                               quotedList(app_.remaining(/*recurse=*/true)));
        case CLI::ExitCodes::ArgumentMismatch:
            return mismatchText(error.what());
        case CLI::ExitCodes::ConversionError:
            return "an option that takes no value was given one";
        case CLI::ExitCodes::ValidationError:
            return error.what(); // a text of this file
        default:
            return "the command line cannot be understood";
        }
    }

    /// The library's message begins with the name of the option or argument.
    std::string mismatchText(const std::string& message) const {
        const std::string name = message.substr(0, message.find(':'));
        return name.starts_with("-")
                   ? fmt::format("{} takes exactly one value", name)
                   : fmt::format("\"{}\" takes exactly one {}", chosen().back(), name);
    }

    std::string missingText() const {
        const CLI::App* command = commandOf(app_);
        if (command == nullptr) {
            return unknownCommandText(app_, "no command was given");
        }
        if (command == plugin_ && commandOf(*command) == nullptr) {
            return unknownCommandText(*command, "\"vesk plugin\" needs a command");
        }
        const auto& rows = commandTable();
        const auto row = std::find_if(rows.begin(), rows.end(), [&](const CommandRow& one) {
            return one.name == chosen().back() && one.second.label != nullptr;
        });
        return row != rows.end()
                   ? fmt::format("\"{}\" needs {} and {}", row->name, row->arguments.label,
                                 row->second.label)
                   : fmt::format("\"{}\" is given nothing to work on", chosen().back());
    }

    /// @param none  what to say when nothing stands in the command's place
    std::string unknownCommandText(const CLI::App& parent, const char* none) const {
        const std::vector<std::string> rest = app_.remaining(/*recurse=*/true);
        if (rest.empty()) {
            return none;
        }
        std::vector<std::string> commands;
        for (const CLI::App* command :
             parent.get_subcommands([](const CLI::App*) { return true; })) {
            commands.push_back(command->get_name());
        }
        const auto close = closeNames(rest.front(), commands);
        return fmt::format("there is no command \"{}\"{}", rest.front(),
                           close.empty() ? ""
                                         : fmt::format("; did you mean {}?", quotedList(close)));
    }

    static CLI::Validator secondsCheck(double least, double most) {
        const CLI::Range range(least, most);
        return {[range, least, most](std::string& text) {
                    return range(text).empty()
                               ? std::string()
                               : fmt::format("\"{}\" is no number of seconds from {:g} to {:g}",
                                             text, least, most);
                },
                ""};
    }

    void addGlobalOptions() {
        app_.add_flag("--json", options_.json,
                      "Answer with one JSON document (watch: one object a line)");
        app_.add_flag(
            "-q,--quiet", options_.quiet,
            "No progress, notes or summaries; what was asked for, warnings and errors only");
        app_.add_flag("-n,--dry-run", options_.dryRun, "Show every change on the phone, make none");
        app_.add_option("--udid", options_.phone.udid,
                        "The phone to use: its UDID, the beginning of it, or its name")
            ->check(CLI::Validator(
                [](const std::string& text) {
                    return text.empty() ? "no phone is called by nothing" : std::string();
                },
                ""))
            ->type_name("UDID");
        timeout_ = app_.add_option("--timeout", seconds_.timeout,
                                   "How long the phone may be silent before a call fails [10]")
                       ->check(secondsCheck(0.001, kDay))
                       ->type_name("SECONDS");
        app_.add_option("--wait", seconds_.wait, "How long to wait for a phone to appear [2]")
            ->check(secondsCheck(0, kDay))
            ->type_name("SECONDS");
    }

    void addCommands() {
        for (const CommandRow& row : commandTable()) {
            addCommand(row.family == nullptr ? app_ : family(row.family), row);
        }
    }

    CLI::App& family(const char* name) {
        if (plugin_ == nullptr) {
            plugin_ = app_.add_subcommand(
                name, "Install the media library's support plug-in, and see whether it runs");
            plugin_->group(kGroup);
            plugin_->require_subcommand(1);
            plugin_->fallthrough();
            plugin_->footer(kPluginPromise);
        }
        return *plugin_;
    }

    void addCommand(CLI::App& parent, const CommandRow& row) {
        CLI::App* app = parent.add_subcommand(row.name, row.summary);
        app->fallthrough();
        app->group(kGroup);
        app->footer(std::string(row.promise) + "\n\nOptions that every command takes: vesk --help");
        app->callback([this, &row] { options_.command = &row; });
        rows_[app] = &row;
        if (row.arguments.label != nullptr) {
            CLI::Option* arguments =
                app->add_option(row.arguments.label, options_.arguments, row.arguments.meaning);
            arguments->required(!row.takesAll)->type_name("");
            if (row.arguments.onlyOne) {
                arguments->expected(1)->allow_extra_args(row.second.label == nullptr);
            }
        }
        if (row.second.label != nullptr) {
            app->add_option(row.second.label, options_.second, row.second.meaning)
                ->required()
                ->type_name("");
        }
        addOptions(*app, row);
    }

    void addOptions(CLI::App& app, const CommandRow& row) {
        if (row.takesName) {
            app.add_option("--name", options_.name, "Name of the ringtone, for one file only")
                ->type_name("NAME");
            app.add_flag("--replace", options_.replace,
                         "Take the place of ringtones of the same names, and their GUIDs");
        }
        if (row.takesYes) {
            app.add_flag("--yes", options_.yes,
                         row.takesAll ? "Remove everything: goes with --all"
                                      : "Go on when the folder is empty: remove everything");
        }
        if (row.takesSyncFolder) {
            app.add_option("--sync", options_.arguments,
                           "Also sync this folder when its phone comes or the folder changes")
                ->expected(1)
                ->type_name("DIR");
        }
        if (row.syncs) {
            app.add_flag("--no-backup", options_.noBackup,
                         "Keep nothing of what the phone holds: no undo, and nothing is put right");
            app.add_flag("--rebuild", options_.rebuild,
                         "List ringtone files again that the phone's catalogue does not list");
        }
        if (row.takesFolder) {
            app.add_flag("-r,--recursive", options_.recursive,
                         "Take the songs of folders in the folder too");
        }
        if (row.takesSongs) {
            addSongOptions(app, row);
        }
        if (row.takesAll) {
            app.add_flag("--all", options_.all, "All ringtones of the phone");
        }
        if (row.fetches) {
            app.add_option("-o,--output", options_.output,
                           "Folder for the files, which is made [the working folder]")
                ->type_name("DIR");
            app.add_flag("--force", options_.force,
                         "Write over a file that is there and holds something else");
        }
        if (row.plays) {
            app.add_option("--sink", options_.sink,
                           "Where the sound goes, in GStreamer's words [where the desktop's goes]")
                ->type_name("SINK");
        }
        if (row.prepares) {
            addPrepareOptions(app);
        }
        if (row.prepares && !row.writes) {
            addPlaceOptions(app);
        }
        if (row.writes) {
            app.add_flag("--force", options_.force,
                         "Write although ringtones would be lost, the catalogue is unreadable or "
                         "others have changed the phone");
        }
    }

    void addPlaceOptions(CLI::App& app) {
        app.add_option("-o,--output", options_.output,
                       "File for the ringtone, or folder for several [the working folder]")
            ->type_name("PLACE");
        app.add_flag("--force", options_.force,
                     "Write over a file that is there; make more than 40 seconds");
    }

    void addSongOptions(CLI::App& app, const CommandRow& row) {
        app.add_flag("--as-is", asIs_, "Make no ringtones of songs; refuse what does not play");
        app.add_flag("--unchecked", unchecked_,
                     "Send files as they are, without looking whether they play");
        if (row.second.label == nullptr) {
            app.add_option("--name-from", nameFrom_, "Where names come from [tags]")
                ->check(choiceCheck({"tags", "file"}))
                ->type_name("tags|file");
        }
    }

    /// Those of them that are given hold for every song, also for one that plays as it is.
    void addPrepareOptions(CLI::App& app) {
        krl::audio::Wish& wish = options_.recipe.wish;
        wishes_.push_back(
            app.add_option("--start", start_,
                           "Where to begin: 62.5, 1:02.5, or -30 for 30 seconds before the end [0]")
                ->check(timeCheck())
                ->type_name("TIME"));
        wishes_.push_back(
            app.add_option("--length", wish.lengthSeconds, "How long it is to be [30]")
                ->check(secondsCheck(kShortestRingtone, kLongestForced))
                ->type_name("SECONDS"));
        wishes_.push_back(
            app.add_option("--fade-in", wish.fadeInSeconds, "How long it is to rise [0]")
                ->check(secondsCheck(0, kLongestForced))
                ->type_name("SECONDS"));
        wishes_.push_back(
            app.add_option("--fade-out", wish.fadeOutSeconds, "How long it is to fall [1]")
                ->check(secondsCheck(0, kLongestForced))
                ->type_name("SECONDS"));
        wishes_.push_back(
            app.add_flag("--auto", wish.automatic, "Find a good beginning near the loudest part"));
        wishes_.push_back(app.add_flag("!--no-level", wish.level, "Leave the loudness as it is"));
    }

    static CLI::Validator timeCheck() {
        return {[](std::string& text) {
                    return krl::audio::secondsIn(text)
                               ? std::string()
                               : fmt::format("\"{}\" is no time; write 62.5, 1:02.5 or -30", text);
                },
                ""};
    }

    static CLI::Validator choiceCheck(const std::vector<std::string>& choices) {
        return {[choices](std::string& text) {
                    return std::find(choices.begin(), choices.end(), text) != choices.end()
                               ? std::string()
                               : fmt::format("\"{}\" is none of {}", text, quotedList(choices));
                },
                ""};
    }

    bool hasWishes() const {
        return std::any_of(wishes_.begin(), wishes_.end(),
                           [](const CLI::Option* wish) { return wish->count() > 0; });
    }

    void requirePreparing() {
        using krl::audio::Treatment;
        krl::audio::Recipe& recipe = options_.recipe;
        if (asIs_ && unchecked_) {
            throw CLI::ValidationError(
                "--as-is refuses what does not play and --unchecked does not; give one");
        }
        recipe.treatment = asIs_        ? Treatment::AsIs
                           : unchecked_ ? Treatment::Unchecked
                                        : Treatment::Prepare;
        recipe.preparesAll = hasWishes();
        options_.nameSource =
            nameFrom_ == "file" ? krl::audio::NameSource::File : krl::audio::NameSource::Tags;
        if (recipe.preparesAll && recipe.treatment != Treatment::Prepare) {
            throw CLI::ValidationError(
                "--as-is and --unchecked make no ringtones: leave --start and the like away");
        }
        if (start_) {
            recipe.wish.startSeconds = krl::audio::secondsIn(*start_).value();
        }
        if (start_ && recipe.wish.automatic) {
            throw CLI::ValidationError("--start and --auto both say where to begin; give one");
        }
        if (recipe.wish.lengthSeconds > krl::audio::kLongestRingtoneSeconds && !options_.force) {
            throw CLI::ValidationError(
                fmt::format("a ringtone ends at {} seconds; --force makes a longer one",
                            krl::audio::kLongestRingtoneSeconds));
        }
    }

    /// "add, remove and undo".
    static std::string writingCommands() {
        std::vector<std::string> names;
        for (const CommandRow& row : commandTable()) {
            if (row.writes) {
                names.emplace_back(row.takesSyncFolder ? fmt::format("{} --sync", row.name)
                                                       : std::string(row.name));
            }
        }
        const std::string last = names.back();
        names.pop_back();
        return fmt::format("{} and {}", fmt::join(names, ", "), last);
    }

    void requireCombination() const {
        if (options_.dryRun && !options_.command->writes) {
            throw CLI::ValidationError(fmt::format("--dry-run is for {}", writingCommands()));
        }
        const bool isForSync = options_.dryRun || options_.force || options_.noBackup ||
                               options_.rebuild || options_.yes || options_.recursive || asIs_ ||
                               unchecked_ || nameFrom_ || hasWishes();
        if (options_.command->takesSyncFolder && options_.arguments.empty() && isForSync) {
            throw CLI::ValidationError("without --sync, \"watch\" changes nothing on a phone: say "
                                       "--sync DIR, or leave the other options away");
        }
        if (options_.rebuild && options_.noBackup) {
            throw CLI::ValidationError("--rebuild does not go without copies of what the phone "
                                       "holds: leave --no-backup away");
        }
        if (options_.all && !options_.arguments.empty()) {
            throw CLI::ValidationError("names and --all exclude each other; give one");
        }
        if (options_.command->takesAll && !options_.all && options_.arguments.empty()) {
            throw CLI::ValidationError(
                fmt::format("\"{}\" is given nothing to work on: give names, or --all",
                            options_.command->name));
        }
        if (options_.command->takesAll && options_.yes && !options_.all) {
            throw CLI::ValidationError("--yes goes with --all; names need none");
        }
        if (options_.name && options_.arguments.size() != 1) {
            throw CLI::ValidationError("--name is for one file");
        }
    }

    static constexpr const char* kGroup = "Commands";
    static constexpr const char* kPluginPromise =
        "Needs no phone. Does not start the media library.";
    static constexpr double kDay = 86400;
    static constexpr double kShortestRingtone = 0.1;
    static constexpr double kLongestForced = 600;

    Options& options_;
    SecondsOptions seconds_;
    std::optional<std::string> start_;
    std::optional<std::string> nameFrom_;
    bool asIs_ = false;
    bool unchecked_ = false;
    std::vector<const CLI::Option*> wishes_; ///< how a ringtone is made
    CLI::App app_;
    CLI::App* plugin_ = nullptr;
    std::map<const CLI::App*, const CommandRow*> rows_;
    CLI::Option* timeout_ = nullptr;
};

bool asksForJson(int argc, char** argv) {
    return std::any_of(argv, argv + argc,
                       [](const char* argument) { return std::string(argument) == "--json"; });
}

} // namespace

std::optional<ExitCode> parseCommandLine(int argc, char** argv, Options& options) {
    Parser parser(options);
    try {
        parser.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        Output output({.json = asksForJson(argc, argv)});
        return parser.explain(error, output);
    }
}

CommandEntry commandTree() {
    Options options;
    return Parser(options).tree();
}

} // namespace vesk
