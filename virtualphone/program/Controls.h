/// The commands that a person, or a script, gives a running virtual phone.
#pragma once

#include "virtualphone/VirtualPhone.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace virtualphone {

class Controls {
public:
    Controls(Bus& bus, std::vector<std::shared_ptr<Phone>> phones);

    /// Carries out one line: COMMAND [@NUMBER] [ARGUMENT], for one phone or without a number for
    /// all.
    ///
    /// @return what to print: lines of an answer and then "ok", or "error: " and the reason.
    std::string run(const std::string& line);

    /// The commands, for --help and "help".
    static std::string help();

private:
    using Targets = std::vector<std::shared_ptr<Phone>>;
    using Handler = std::string (Controls::*)(const Targets& targets, const std::string& argument);

    struct Command {
        const char* name;
        const char* argument;
        const char* explanation;
        Handler handler;
    };

    static const std::vector<Command>& commands();

    Targets targetsOf(const std::string& target) const;
    size_t indexOf(const Phone& phone) const;

    // Each returns lines to print; what is wrong is thrown as std::invalid_argument.
    std::string list(const Targets& targets, const std::string& argument);
    std::string plug(const Targets& targets, const std::string& argument);
    std::string unplug(const Targets& targets, const std::string& argument);
    std::string post(const Targets& targets, const std::string& argument);
    std::string fault(const Targets& targets, const std::string& argument);
    std::string clearFaults(const Targets& targets, const std::string& argument);
    std::string silence(const Targets& targets, const std::string& argument);
    std::string talk(const Targets& targets, const std::string& argument);
    std::string holdLock(const Targets& targets, const std::string& argument);
    std::string releaseLock(const Targets& targets, const std::string& argument);
    std::string setFree(const Targets& targets, const std::string& argument);
    std::string judge(const Targets& targets, const std::string& argument);
    std::string forgetHosts(const Targets& targets, const std::string& argument);

    Bus& bus_;
    const Targets phones_;
};

/// One line about a phone: number, name, class, firmware, UDID, folder, and whether it is plugged
/// in.
std::string describe(const Bus& bus, const Phone& phone, size_t index);

/// Adds a fault to each of these phones, or to the bus when it is of the bus's own requests.
void addFault(Bus& bus, const std::vector<std::shared_ptr<Phone>>& phones, const Fault& fault);

} // namespace virtualphone
