#include "virtualphone/program/Controls.h"

#include "virtualphone/program/StrictAudio.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace virtualphone {

namespace {

std::string labelOf(size_t index) {
    return "phone " + std::to_string(index + 1);
}

// The next word, taken off the line.
std::string takeWord(std::string& line) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    const auto start = std::find_if_not(line.begin(), line.end(), isSpace);
    const auto end = std::find_if(start, line.end(), isSpace);
    std::string word(start, end);
    line.erase(line.begin(), std::find_if_not(end, line.end(), isSpace));
    return word;
}

uint64_t numberOf(const std::string& text) {
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw std::invalid_argument("'" + text + "' is no number");
    }
    return number;
}

} // namespace

std::string describe(const Bus& bus, const Phone& phone, size_t index) {
    const PhoneOptions& options = phone.options();
    const uint32_t id = bus.deviceId(phone);
    std::ostringstream line;
    line << labelOf(index) << ": " << options.name << " (" << options.deviceClass << ", "
         << (options.firmware.empty() ? "no version" : options.firmware) << "), UDID "
         << options.udid << ", folder " << options.root.string() << ", ";
    if (id == 0) {
        line << "not plugged in";
    } else {
        line << "plugged in as device " << id;
    }
    return line.str();
}

void addFault(Bus& bus, const std::vector<std::shared_ptr<Phone>>& phones, const Fault& fault) {
    if (fault.service == Service::Usbmux) {
        bus.faults().add(fault);
        return;
    }
    for (const std::shared_ptr<Phone>& phone : phones) {
        phone->faults().add(fault);
    }
}

Controls::Controls(Bus& bus, std::vector<std::shared_ptr<Phone>> phones)
    : bus_(bus), phones_(std::move(phones)) {}

const std::vector<Controls::Command>& Controls::commands() {
    static const std::vector<Command> all = {
        {"list", "", "show the phones", &Controls::list},
        {"plug", "", "plug in", &Controls::plug},
        {"unplug", "", "pull out", &Controls::unplug},
        {"post", "NAME", "post a notification on the phone", &Controls::post},
        {"fault", "FAULT", "add a fault, in the form of --fault", &Controls::fault},
        {"clear-faults", "", "take back all faults and the silence", &Controls::clearFaults},
        {"silence", "", "answer nothing from now on", &Controls::silence},
        {"talk", "", "answer again, held-back answers first", &Controls::talk},
        {"hold-lock", "", "hold the sync lock", &Controls::holdLock},
        {"release-lock", "", "let go of it", &Controls::releaseLock},
        {"free", "BYTES", "set the free space", &Controls::setFree},
        {"judge", "", "show the ringtones that would not play (with ffprobe)", &Controls::judge},
        {"forget-hosts", "", "trust no computer any more", &Controls::forgetHosts},
    };
    return all;
}

std::string Controls::help() {
    std::ostringstream text;
    for (const Command& command : commands()) {
        std::string form = command.name;
        if (*command.argument != '\0') {
            form += std::string(" ") + command.argument;
        }
        form.resize(std::max<size_t>(form.size(), 16), ' ');
        text << "  " << form << command.explanation << '\n';
    }
    text << "  help            show this\n"
            "  quit            end\n"
            "A command goes to every phone, or with @NUMBER after its name to one: unplug @2\n";
    return text.str();
}

std::string Controls::run(const std::string& line) {
    std::string rest = line;
    const std::string name = takeWord(rest);
    if (name.empty()) {
        return "";
    }
    if (name == "help") {
        return help() + "ok\n";
    }
    const auto command = std::find_if(commands().begin(), commands().end(),
                                      [&](const Command& known) { return name == known.name; });
    if (command == commands().end()) {
        return "error: there is no command '" + name + "'; 'help' shows them\n";
    }
    const std::string target = rest.starts_with('@') ? takeWord(rest).substr(1) : "";
    const bool wantsArgument = *command->argument != '\0';
    if (wantsArgument == rest.empty()) {
        return "error: the form is: " + name + " [@NUMBER] " + command->argument + "\n";
    }
    try {
        return (this->*command->handler)(targetsOf(target), rest) + "ok\n";
    } catch (const std::exception& error) {
        return std::string("error: ") + error.what() + "\n";
    }
}

Controls::Targets Controls::targetsOf(const std::string& target) const {
    if (target.empty()) {
        return phones_;
    }
    const uint64_t number = numberOf(target);
    if (number == 0 || number > phones_.size()) {
        throw std::invalid_argument("there is no phone @" + target);
    }
    return {phones_[static_cast<size_t>(number - 1)]};
}

size_t Controls::indexOf(const Phone& phone) const {
    const auto found =
        std::find_if(phones_.begin(), phones_.end(),
                     [&](const std::shared_ptr<Phone>& known) { return known.get() == &phone; });
    return static_cast<size_t>(found - phones_.begin());
}

std::string Controls::list(const Targets& targets, const std::string&) {
    std::string lines;
    for (const auto& phone : targets) {
        lines += describe(bus_, *phone, indexOf(*phone)) + "\n";
    }
    return lines;
}

std::string Controls::plug(const Targets& targets, const std::string&) {
    for (const auto& phone : targets) {
        bus_.plug(phone);
    }
    return "";
}

std::string Controls::unplug(const Targets& targets, const std::string&) {
    for (const auto& phone : targets) {
        if (!bus_.unplug(bus_.deviceId(*phone))) {
            throw std::invalid_argument(labelOf(indexOf(*phone)) + " is not plugged in");
        }
    }
    return "";
}

std::string Controls::post(const Targets& targets, const std::string& argument) {
    for (const auto& phone : targets) {
        phone->post(argument);
    }
    return "";
}

std::string Controls::fault(const Targets& targets, const std::string& argument) {
    addFault(bus_, targets, parseFault(argument));
    return "";
}

std::string Controls::clearFaults(const Targets& targets, const std::string&) {
    bus_.faults().clear();
    for (const auto& phone : targets) {
        phone->faults().clear();
    }
    return "";
}

std::string Controls::silence(const Targets& targets, const std::string&) {
    for (const auto& phone : targets) {
        phone->faults().goSilent();
    }
    return "";
}

std::string Controls::talk(const Targets& targets, const std::string&) {
    for (const auto& phone : targets) {
        phone->faults().endSilence();
    }
    return "";
}

std::string Controls::holdLock(const Targets& targets, const std::string&) {
    for (const auto& phone : targets) {
        if (!phone->holdSyncLock()) {
            throw std::invalid_argument("a client holds the sync lock of " +
                                        labelOf(indexOf(*phone)));
        }
    }
    return "";
}

std::string Controls::releaseLock(const Targets& targets, const std::string&) {
    for (const auto& phone : targets) {
        phone->releaseSyncLock();
    }
    return "";
}

std::string Controls::setFree(const Targets& targets, const std::string& argument) {
    const uint64_t bytes = numberOf(argument);
    for (const auto& phone : targets) {
        phone->setFreeBytes(bytes);
    }
    return "";
}

std::string Controls::judge(const Targets& targets, const std::string&) {
    std::string lines;
    for (const auto& phone : targets) {
        for (const Unplayable& ringtone : phone->wouldNotPlay()) {
            lines += describe(ringtone) + "\n";
        }
    }
    return lines;
}

std::string Controls::forgetHosts(const Targets& targets, const std::string&) {
    for (const auto& phone : targets) {
        phone->forgetHosts();
    }
    return "";
}

} // namespace virtualphone
