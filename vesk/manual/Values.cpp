#include "vesk/manual/Values.h"

#include <algorithm>
#include <sstream>

namespace vesk {
namespace {

ValueKind fileKindOf(const std::string& label) {
    if (label == "FILE" || label == "PLACE" || label == "CATALOGUE") {
        return ValueKind::Files;
    }
    return label == "DIR" ? ValueKind::Folders : ValueKind::Nothing;
}

} // namespace

// The names in a document of vesk, which has one value a line. Behind the first "ringtones", so that
// the phone's own name is none. In quotes no two backslashes follow each other: fish reads one.
const char* const kListRingtones =
    R"sh(vesk list --json --wait 0.5 --timeout 2 2>/dev/null | )sh"
    R"sh(sed -n '/"ringtones"/,$ s/^ *"name": "\(.*\)",\{0,1\}$/\1/p' | sed 's/[\]\(["\]\)/\1/g')sh";
const char* const kListPhones = R"sh(vesk devices --json --wait 0.5 --timeout 2 2>/dev/null | )sh"
                                R"sh(sed -n 's/^ *"udid": "\(.*\)",\{0,1\}$/\1/p')sh";

ValueKind kindOf(const OptionEntry& option) {
    if (option.value.find('|') != std::string::npos) {
        return ValueKind::Choices;
    }
    return option.value == "UDID" ? ValueKind::Phones : fileKindOf(option.value);
}

ValueKind kindOf(const ArgumentEntry& argument) {
    const bool isRingtone = argument.label == "NAME" || argument.label == "OLD";
    return isRingtone ? ValueKind::Ringtones : fileKindOf(argument.label);
}

std::vector<std::string> choicesIn(const std::string& label) {
    std::vector<std::string> choices;
    std::istringstream list(label);
    for (std::string choice; std::getline(list, choice, '|');) {
        choices.push_back(choice);
    }
    return choices;
}

std::vector<OptionEntry> optionsOf(const CommandEntry& vesk, const CommandEntry& command) {
    std::vector<OptionEntry> options = command.options;
    for (const OptionEntry& option : vesk.options) {
        const bool isOwn = std::any_of(options.begin(), options.end(), [&](const OptionEntry& own) {
            return own.names.back() == option.names.back();
        });
        const bool isMeant = option.names.back() == "--dry-run"
                                 ? command.writes
                                 : option.names.back() != "--version";
        if (!isOwn && isMeant) {
            options.push_back(option);
        }
    }
    return options;
}

std::vector<NamedCommand> commandsOf(const CommandEntry& vesk) {
    std::vector<NamedCommand> all;
    for (const CommandEntry& command : vesk.commands) {
        all.push_back({command.name, &command});
        for (const NamedCommand& one : commandsOf(command)) {
            all.push_back({command.name + " " + one.words, one.command});
        }
    }
    return all;
}

std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char character : text) {
        result += character == '\'' ? std::string(R"('\'')") : std::string(1, character);
    }
    return result + "'";
}

std::string onOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

} // namespace vesk
