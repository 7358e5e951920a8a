// The virtual phone as a program: options, the bus and its phones, and a command to run beside
// them.

#include "virtualphone/VirtualPhone.h"
#include "virtualphone/playing/Ffprobe.h"
#include "virtualphone/program/CommandRunner.h"
#include "virtualphone/program/Controls.h"
#include "virtualphone/program/StrictAudio.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace virtualphone;

constexpr const char* kEnvironmentName = "USBMUXD_SOCKET_ADDRESS";
constexpr double kLongestMs = 86'400'000; // a day
constexpr int kWouldNotPlay = 3;

struct ProgramOptions {
    std::vector<std::string> roots;
    std::vector<std::string> firmwares;
    std::vector<std::string> names;
    std::vector<std::string> classes;
    std::vector<std::string> udids;
    PhoneOptions shared; ///< what all phones have in common
    double latencyMs = 0;
    double wireDelayMs = 0;
    uint64_t lockdownIdleMs = 10'000;
    bool isUnpaired = false;
    bool needsNoValidation = false;

    std::string socket;
    std::string log;
    std::vector<std::string> faults;
    bool holdsSyncLock = false;
    bool startsUnplugged = false;
    bool isInteractive = false;
    bool isStrictOnAudio = false;
    std::vector<std::string> command;
};

void addPhoneOptions(CLI::App& app, ProgramOptions& options) {
    const auto perPhone = [&](const char* name, std::vector<std::string>& values,
                              const char* help) {
        return app.add_option(name, values, help)->allow_extra_args(false)->group("Phones");
    };
    perPhone("--root", options.roots, "folder of the media partition, made when missing")
        ->required()
        ->option_text("DIR (required)");
    perPhone("--firmware", options.firmwares, "firmware version [1.1.1]")->option_text("VERSION");
    perPhone("--name", options.names, "the phone's name [Virtual Phone]")->option_text("NAME");
    perPhone("--class", options.classes, "iPhone or iPod [iPhone]")->option_text("CLASS");
    perPhone("--udid", options.udids, "40 hex digits [derived from the folder]")
        ->option_text("UDID");
}

void addBehaviourOptions(CLI::App& app, ProgramOptions& options) {
    const auto size = [&](const char* name, auto& value, const char* help) {
        app.add_option(name, value, help)
            ->transform(CLI::AsSizeValue(false))
            ->option_text("BYTES")
            ->group("Behaviour");
    };
    const auto flag = [&](const char* name, bool& value, const char* help) {
        app.add_flag(name, value, help)->group("Behaviour");
    };
    size("--free-bytes", options.shared.freeBytes, "free space, enforced [the disk's]");
    size("--total-bytes", options.shared.totalBytes, "size of the partition [the disk's]");
    size("--link-speed", options.shared.linkBytesPerSecond,
         "bytes a second that file contents travel at [as fast as it goes]");
    app.add_option("--latency", options.latencyMs, "thinking time before each answer [0]")
        ->check(CLI::Range(0.0, kLongestMs))
        ->option_text("MS")
        ->group("Behaviour");
    app.add_option("--wire-delay", options.wireDelayMs,
                   "how much later bytes arrive, both ways; many at a time do not add up [0]")
        ->check(CLI::Range(0.0, kLongestMs))
        ->option_text("MS")
        ->group("Behaviour");
    app.add_option("--lockdown-idle", options.lockdownIdleMs,
                   "an idle lockdown connection is closed after this; 0 never [10000]")
        ->check(CLI::Range(0.0, kLongestMs))
        ->option_text("MS")
        ->group("Behaviour");
    app.add_option(
           "--session", options.shared.session,
           "how sessions travel: clear, modern (TLS) or ssl3, as on the first phones [clear]")
        ->transform(CLI::CheckedTransformer(
                        std::map<std::string, SessionKind>{{"clear", SessionKind::Clear},
                                                           {"modern", SessionKind::Modern},
                                                           {"ssl3", SessionKind::Ssl3}})
                        .description(""))
        ->option_text("KIND")
        ->group("Behaviour");
    flag("--secure-services", options.shared.secureServices,
         "services are encrypted as sessions are, as on later firmware");
    flag("--expired-certificate", options.shared.expiredCertificate,
         "the phone's certificate is not valid any more");
    flag("--unpaired", options.isUnpaired, "no computer is paired with the phone");
    flag("--passcode", options.shared.passwordProtected, "locked: pairing is refused");
    flag("--no-validation", options.needsNoValidation,
         "sessions start without ValidatePair on the connection");
    flag("--binary-replies", options.shared.binaryReplies,
         "lockdown and notifications answer in binary property lists");
    flag("--make-parents", options.shared.makeDirectoryMakesParents,
         "making a folder makes its parents");
    flag("--accept-existing", options.shared.makeDirectoryAcceptsExisting,
         "making a folder that is there succeeds");
    flag("--reuse-handles", options.shared.reuseFileHandles,
         "numbers of closed files are given out again");
    flag("--strict-audio", options.isStrictOnAudio,
         "say which ringtones would not play, and end with status 3 then; takes ffprobe");
    size("--sound-read", options.shared.soundReadBytes,
         "reads of more than this bring wrong bytes, 0 never [0]");
}

void addFaultOptions(CLI::App& app, ProgramOptions& options) {
    app.add_option("--fault", options.faults,
                   "SERVICE[/REQUEST][#N[+]]=ACTION, as in afc/Write#3=status:18; may be repeated")
        ->allow_extra_args(false)
        ->option_text("FAULT")
        ->group("Faults");
    app.add_flag("--hold-sync-lock", options.holdsSyncLock, "a sync of the phone's own is going on")
        ->group("Faults");
}

void addProgramOptions(CLI::App& app, ProgramOptions& options) {
    app.add_option("--socket", options.socket, "socket path [in a private temporary folder]")
        ->option_text("PATH")
        ->group("Program");
    app.add_option("--log", options.log, "write every request, one JSON object a line")
        ->option_text("FILE")
        ->group("Program");
    app.add_flag("--unplugged", options.startsUnplugged, "do not plug the phones in at the start")
        ->group("Program");
    app.add_flag("--interactive", options.isInteractive, "take commands from standard input")
        ->group("Program");
    app.add_option("command", options.command,
                   "after --: run this with the socket in its environment, and end with its status")
        ->option_text("COMMAND ...");
}

constexpr const char* kDescription =
    "A phone in a folder, for programs that speak to phones over the usbmux socket.\n"
    "Runs COMMAND with USBMUXD_SOCKET_ADDRESS set, or serves until interrupted:\n\n"
    "  virtualphone --root DIR [OPTIONS] [-- COMMAND ...]";

std::string footer() {
    return "Several phones: repeat --root. --firmware, --name, --class and --udid are then given\n"
           "once for all phones or once for each, in the same order.\n\n"
           "Faults: the services are usbmux, lockdown, afc and notification_proxy, requests have\n"
           "the names they have in the log. #N meets the N-th request alone, #N+ all from there\n"
           "on. Actions: status:N, error:NAME, drop, silent, unplug, drop-unanswered,\n"
           "drop-after-answer, delay:MS, cut, stall, drip:MS, short, long, garbled, bad-magic,\n"
           "wrong-number, wrong-operation, tiny-length, huge-length.\n\n"
           "Commands of --interactive:\n" +
           Controls::help();
}

// A value given once counts for all phones, otherwise each phone has its own.
std::string valueFor(const char* option, const std::vector<std::string>& values, size_t phone,
                     size_t phones, const std::string& standard) {
    if (values.empty()) {
        return standard;
    }
    if (values.size() != 1 && values.size() != phones) {
        throw std::invalid_argument(
            std::string(option) + " is given " + std::to_string(values.size()) + " times for " +
            std::to_string(phones) + " phones; give it once for all or once for each");
    }
    return values.size() == 1 ? values.front() : values[phone];
}

std::chrono::microseconds microsecondsOf(double milliseconds) {
    return std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::duration<double, std::milli>(milliseconds));
}

std::vector<std::shared_ptr<Phone>> makePhones(const ProgramOptions& options) {
    std::vector<std::shared_ptr<Phone>> phones;
    const size_t count = options.roots.size();
    for (size_t i = 0; i < count; ++i) {
        PhoneOptions phone = options.shared;
        phone.root = options.roots[i];
        phone.firmware = valueFor("--firmware", options.firmwares, i, count, phone.firmware);
        phone.name = valueFor("--name", options.names, i, count, phone.name);
        phone.deviceClass = valueFor("--class", options.classes, i, count, phone.deviceClass);
        phone.udid = valueFor("--udid", options.udids, i, count, phone.udid);
        phone.paired = !options.isUnpaired;
        phone.sessionNeedsValidation = !options.needsNoValidation;
        phone.lockdownIdleTimeout = std::chrono::milliseconds(options.lockdownIdleMs);
        phone.replyLatency = microsecondsOf(options.latencyMs);
        phone.wireDelay = microsecondsOf(options.wireDelayMs);
        if (options.isStrictOnAudio) {
            sayWhatWouldNotPlay(phone);
        }
        phones.push_back(std::make_shared<Phone>(phone));
    }
    return phones;
}

void prepare(Bus& bus, const std::vector<std::shared_ptr<Phone>>& phones,
             const ProgramOptions& options) {
    bus.log().keepAtMost(0); // what runs for days keeps nothing in memory
    if (!options.log.empty()) {
        bus.log().writeTo(options.log);
    }
    for (const std::string& fault : options.faults) {
        addFault(bus, phones, parseFault(fault));
    }
    for (const std::shared_ptr<Phone>& phone : phones) {
        if (options.holdsSyncLock && !phone->holdSyncLock()) {
            throw std::runtime_error("the sync lock in " + phone->options().root.string() +
                                     " is held by another program");
        }
        if (!options.startsUnplugged) {
            bus.plug(phone);
        }
    }
}

// In single quotes where the shell would not take it as it stands.
std::string quoted(const std::string& text) {
    const char* const plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./:-+";
    if (text.find_first_not_of(plain) == std::string::npos) {
        return text;
    }
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return result + "'";
}

void announce(const Bus& bus, const std::vector<std::shared_ptr<Phone>>& phones) {
    for (size_t i = 0; i < phones.size(); ++i) {
        std::cerr << describe(bus, *phones[i], i) << '\n';
    }
    std::cout << "export " << kEnvironmentName << "=" << quoted(bus.environmentValue())
              << std::endl;
}

int run(const ProgramOptions& options) {
    const SignalMask mask;
    if (options.isStrictOnAudio) {
        requireFfprobe();
    }
    Bus bus(options.socket);
    const std::vector<std::shared_ptr<Phone>> phones = makePhones(options);
    prepare(bus, phones, options);
    if (options.command.empty()) {
        announce(bus, phones);
    }
    Controls controls(bus, phones);
    RunnerSetup setup;
    setup.command = options.command;
    setup.environmentName = kEnvironmentName;
    setup.environmentValue = bus.environmentValue();
    if (options.isInteractive) {
        setup.onLine = [&](const std::string& line) {
            std::cout << controls.run(line) << std::flush;
        };
    }
    const int status = runUntilTheEnd(mask, setup);
    const bool isGood = !options.isStrictOnAudio || allWouldPlay(phones);
    return status == 0 && !isGood ? kWouldNotPlay : status;
}

constexpr int kFailure = 1;
constexpr int kWrongUse = 2;

int parseAndRun(int argc, char** argv) {
    CLI::App app(kDescription, "virtualphone");
    ProgramOptions options;
    addPhoneOptions(app, options);
    addBehaviourOptions(app, options);
    addFaultOptions(app, options);
    addProgramOptions(app, options);
    app.footer(footer());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUse;
    }
    return run(options);
}

} // namespace

int main(int argc, char** argv) {
    try {
        return parseAndRun(argc, argv);
    } catch (const std::invalid_argument& error) {
        std::cerr << "virtualphone: " << error.what() << '\n';
        return kWrongUse;
    } catch (const std::exception& error) {
        std::cerr << "virtualphone: " << error.what() << '\n';
        return kFailure;
    }
}
