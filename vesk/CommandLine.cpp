#include "vesk/CommandLine.h"

#include "engine/errors/Failure.h"
#include "engine/values/Text.h"
#include "vesk/commands/Commands.h"
#include "vesk/terminal/Interrupt.h"
#include "vesk/terminal/Output.h"

#include <CLI/CLI.hpp>
#include <MobileDevice/MobileDevice.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <string>

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
        app_.set_version_flag("--version", "vesk " VESK_VERSION);
        app_.footer(exitCodeHelp());
        addGlobalOptions();
        addDeviceCommands();
        addPairingCommands();
        addRingtoneCommands();
        addOfflineCommands();
        addPluginCommands();
    }

    /// @throw CLI::ParseError also for --help and --version
    void parse(int argc, char** argv) {
        app_.parse(argc, argv);
        if (timeout_->count() > 0) {
            options_.timeout = milliseconds(seconds_.timeout);
        }
        options_.wait = milliseconds(seconds_.wait);
        requireCombination();
    }

    /// Prints help, version or the error, and returns what to exit with.
    ExitCode explain(const CLI::ParseError& error, Output& output) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            app_.exit(error);
            return ExitCode::Success;
        }
        output.failure({ExitCode::Usage, messageFor(error), "vesk --help shows what there is."});
        return ExitCode::Usage;
    }

private:
    std::string messageFor(const CLI::ParseError& error) const {
        const std::vector<std::string> rest = app_.remaining();
        const bool noCommand = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr &&
                               app_.get_subcommands().empty();
        if (!noCommand) {
            return error.what();
        }
        if (rest.empty()) {
            return "no command was given";
        }
        std::vector<std::string> commands;
        for (const CLI::App* command : app_.get_subcommands([](const CLI::App*) { return true; })) {
            commands.push_back(command->get_name());
        }
        const auto close = closeNames(rest.front(), commands);
        return fmt::format("there is no command \"{}\"{}", rest.front(),
                           close.empty() ? ""
                                         : fmt::format("; did you mean {}?", quotedList(close)));
    }

    void addGlobalOptions() {
        const auto seconds = [](double least) {
            return CLI::Range(least, 86400.0).description("");
        };
        app_.add_flag("--json", options_.json,
                      "Answer with one JSON document (watch: one object a line)");
        app_.add_flag(
            "-q,--quiet", options_.quiet,
            "No progress, notes or summaries; what was asked for, warnings and errors only");
        app_.add_flag("-n,--dry-run", options_.dryRun,
                      "add, remove, sync: show every change on the phone, make none");
        app_.add_option("--udid", options_.udid, "The phone to use when several are attached")
            ->type_name("UDID");
        timeout_ = app_.add_option("--timeout", seconds_.timeout,
                                   "How long the phone may be silent before a call fails [10]")
                       ->check(seconds(0.001))
                       ->type_name("SECONDS");
        app_.add_option("--wait", seconds_.wait, "How long to wait for a phone to appear [2]")
            ->check(seconds(0))
            ->type_name("SECONDS");
    }

    CLI::App* command(Command which, const char* name, const char* description,
                      const char* footer) {
        return command(app_, which, name, description, footer);
    }

    CLI::App* command(CLI::App& parent, Command which, const char* name, const char* description,
                      const char* footer) {
        CLI::App* app = parent.add_subcommand(name, description);
        app->fallthrough();
        app->group("Commands");
        app->footer(std::string(footer) + "\n\nOptions that every command takes: vesk --help");
        app->callback([this, which] { options_.command = which; });
        return app;
    }

    CLI::Option* arguments(CLI::App* app, const char* name, const char* description) {
        return app->add_option(name, options_.arguments, description)->required();
    }

    void addForce(CLI::App* app) {
        app->add_flag("--force", options_.force,
                      "Write although ringtones would be lost or the catalogue is unreadable");
    }

    void addDeviceCommands() {
        command(
            Command::Devices, "devices",
            "Show what is attached, also phones that are not paired and devices that are no "
            "iPhones",
            "Changes nothing. Does not promise that a phone shown as usable can be opened: that "
            "is found\nout by opening it (vesk info).");
        command(Command::Info, "info", "Show a phone's name, firmware, free space and ringtones",
                "Changes nothing. The free space is what the phone says at that moment.");
        command(Command::Watch, "watch", "Show phones as they come and go, until Ctrl-C",
                "Changes nothing. What is attached already comes first. Ctrl-C ends with exit code "
                "0.");
    }

    void addPairingCommands() {
        command(
            Command::Pair, "pair", "Pair a phone with this computer",
            "Makes keys and certificates, has the phone take them and the usbmuxd daemon keep "
            "them. Does\nnothing when the phone knows this computer already. Does not change the "
            "phone's contents.");
        command(Command::Unpair, "unpair", "End a phone's pairing with this computer",
                "The phone forgets this computer, and the usbmuxd daemon the keys. Does not change "
                "the phone's\ncontents, nor its pairing with other computers.");
        command(
            Command::Doctor, "doctor",
            "Look for what stands between you and a phone, and say what to do",
            "Changes nothing. Looks at the usbmuxd daemon, encryption, pairing, the session, the "
            "file service,\nthe sync lock (taken and given back at once), free space, the "
            "catalogue and the firmware of every\nphone that is attached. Exit code 70: "
            "something stands in the way.");
    }

    void addRingtoneCommands() {
        command(Command::List, "list", "Show the ringtones on a phone",
                "Changes nothing. Shows what the phone's catalogue lists and whose file is there; "
                "ringtones that\ncame with the phone are not among them.");

        CLI::App* add = command(
            Command::Add, "add", "Put ringtone files on a phone",
            "Ringtones already there stay. A ringtone's name is the title in the file's tags, or "
            "else the file\nname. Does not convert files, does not check that the phone can play "
            "them, and deletes files in\nthe phone's ringtone folder that no catalogue entry "
            "lists, as every sync does.");
        arguments(add, "FILE", "m4r, m4a, m4p, mp3, wav, aif or aiff")->type_name("");
        add->add_option("--name", options_.name, "Name of the ringtone, for one file only")
            ->type_name("NAME");
        addForce(add);

        CLI::App* remove = command(Command::Remove, "remove", "Take ringtones off a phone",
                                   "Names are compared exactly, as vesk list --json shows them. "
                                   "Does not keep a copy. Does "
                                   "not\nchange contacts that use the ringtone.");
        arguments(remove, "NAME", "Names of ringtones")->type_name("");
        addForce(remove);

        CLI::App* sync = command(
            Command::Sync, "sync", "Make a phone hold exactly the ringtones of a folder",
            "Adds what is missing, replaces what has another size, removes everything else. Looks "
            "at "
            "the files\nof the folder itself, not at folders in it, hidden files or other types. "
            "Does not notice a change\nthat leaves a file's size as it was. Does not bring a lock "
            "that another program holds to an end:\nafter about 7 seconds it goes on without.");
        arguments(sync, "DIR", "Folder of ringtone files")->expected(1)->type_name("");
        sync->add_flag("--yes", options_.yes, "Go on when the folder is empty: remove everything");
        addForce(sync);
    }

    void addOfflineCommands() {
        CLI::App* check = command(
            Command::Check, "check", "Check a catalogue file on this computer for firmware 1.1.1",
            "Shows the entries in the order in which firmware 1.1.1 walks them, with their slots, "
            "and the file\nnames in the way. Needs no phone. Does not look at ringtone files. Exit "
            "code 0: accepted, 50: not\naccepted, 51: not a catalogue.");
        arguments(check, "CATALOGUE", "A file such as Ringtones.plist")->expected(1)->type_name("");
    }

    void addPluginCommands() {
        CLI::App& plugin = *app_.add_subcommand(
            "plugin", "Install the media library's support plug-in, and see whether it runs");
        plugin.group("Commands");
        plugin.require_subcommand(1);
        plugin.fallthrough();
        plugin.footer("Needs no phone. Does not start the media library.");
        command(
            plugin, Command::PluginStatus, "status",
            "Show which version is installed where, and which one is needed",
            "Changes nothing. Does not ask whether the plug-in is running (vesk plugin validate). "
            "Exit code 0:\ncurrent, 60: missing or out of date.");
        command(
            plugin, Command::PluginInstall, "install",
            "Install the plug-in, unless the installed one is current",
            "Replaces one that is out of date; does not keep it when unpacking fails. Needs the "
            "device layer,\nas every start-up does, but no phone.");
        command(
            plugin, Command::PluginValidate, "validate", "Ask whether a recent plug-in is running",
            "Changes nothing. Always takes 6 seconds. Does not tell an old plug-in from none. Exit "
            "code 0: one\nanswered, 62: none did.");
        command(plugin, Command::PluginRun, "run",
                "Run the installed plug-in's program here, until Ctrl-C",
                "Answers on the session bus. Does not install the plug-in first.");
    }

    void requireCombination() const {
        const bool writes = options_.command == Command::Add ||
                            options_.command == Command::Remove ||
                            options_.command == Command::Sync;
        if (options_.dryRun && !writes) {
            throw CLI::ValidationError("--dry-run", "is for add, remove and sync");
        }
        if (options_.name && options_.arguments.size() != 1) {
            throw CLI::ValidationError("--name", "is for one file");
        }
    }

    Options& options_;
    SecondsOptions seconds_;
    CLI::App app_;
    CLI::Option* timeout_ = nullptr;
};

ExitCode carryOut(const Options& options, Output& output) {
    if (options.timeout && AMDeviceSetCallTimeout != nullptr) {
        AMDeviceSetCallTimeout(static_cast<uint32_t>(options.timeout->count()));
    }
    switch (options.command) {
    case Command::Devices:
        return runDevices(options, output);
    case Command::Info:
        return runInfo(options, output);
    case Command::List:
        return runList(options, output);
    case Command::Add:
        return runAdd(options, output);
    case Command::Remove:
        return runRemove(options, output);
    case Command::Sync:
        return runSync(options, output);
    case Command::Check:
        return runCheck(options, output);
    case Command::Watch:
        return runWatch(options, output);
    case Command::Pair:
        return runPair(options, output);
    case Command::Unpair:
        return runUnpair(options, output);
    case Command::Doctor:
        return runDoctor(options, output);
    case Command::PluginStatus:
        return runPluginStatus(options, output);
    case Command::PluginInstall:
        return runPluginInstall(options, output);
    case Command::PluginValidate:
        return runPluginValidate(options, output);
    case Command::PluginRun:
        return runPluginRun(options, output);
    }
    return ExitCode::Unexpected;
}

/// Runs an action and turns what it throws into a message and an exit code.
template <typename Action>
ExitCode guarded(Output& output, Action action) {
    try {
        return action();
    } catch (const Failure& failure) {
        output.failure(failure);
        return failure.code();
    } catch (const std::exception& error) {
        output.failure({ExitCode::Unexpected, error.what()});
        return ExitCode::Unexpected;
    }
}

bool asksForJson(int argc, char** argv) {
    return std::any_of(argv, argv + argc,
                       [](const char* argument) { return std::string(argument) == "--json"; });
}

} // namespace

int run(int argc, char** argv) {
    installInterruptHandlers();
    Options options;
    Parser parser(options);
    try {
        parser.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        Output output({.json = asksForJson(argc, argv)});
        return static_cast<int>(parser.explain(error, output));
    }
    Output output({.json = options.json, .quiet = options.quiet});
    ExitCode code = guarded(output, [&] { return carryOut(options, output); });
    const ExitCode written = guarded(output, [&] {
        output.finish();
        return ExitCode::Success;
    });
    return static_cast<int>(code == ExitCode::Success ? written : code);
}

} // namespace vesk
