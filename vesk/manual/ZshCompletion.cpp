#include "vesk/manual/Completions.h"
#include "vesk/manual/Values.h"

#include <fmt/format.h>

#include <algorithm>

namespace vesk {
namespace {

/// Each command has a function, and a family hands on to those of its commands.
constexpr char kFunctions[] = R"zsh(
(( $+functions[_vesk_ringtones] )) || _vesk_ringtones() {
    local -a names
    names=(${(f)"$(_vesk_list_ringtones)"})
    compadd -a names
}

(( $+functions[_vesk_phones] )) || _vesk_phones() {
    local -a names
    names=(${(f)"$(_vesk_list_phones)"})
    compadd -a names
}
)zsh";

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        const bool isSpecial =
            character == '[' || character == ']' || character == ':' || character == '\\';
        result += (isSpecial ? "\\" : "") + std::string(1, character);
    }
    return result;
}

std::string suggestion(ValueKind kind, const std::string& label) {
    switch (kind) {
    case ValueKind::Files:
        return "_files";
    case ValueKind::Folders:
        return "_path_files -/";
    case ValueKind::Phones:
        return "_vesk_phones";
    case ValueKind::Ringtones:
        return "_vesk_ringtones";
    case ValueKind::Choices:
        return fmt::format("({})", fmt::join(choicesIn(label), " "));
    case ValueKind::Nothing:
        break;
    }
    return " ";
}

/// A specification of _arguments.
/// A specification of _arguments. A long option's value follows it, or a "=".
std::string optionWord(const OptionEntry& option) {
    const bool takesValue = !option.value.empty();
    const std::string value = takesValue ? fmt::format(":{}:{}", escaped(option.value),
                                                       suggestion(kindOf(option), option.value))
                                         : "";
    const std::string rest = (takesValue ? "=[" : "[") + escaped(option.meaning) + "]" + value;
    if (option.names.size() == 1) {
        return quoted(option.names.front() + rest);
    }
    return fmt::format("'({})'{{{}}}{}", fmt::join(option.names, " "), fmt::join(option.names, ","),
                       quoted(rest));
}

std::string arguments(const std::vector<std::string>& words) {
    return fmt::format("    _arguments -s -S -C \\\n        {}\n",
                       fmt::join(words, " \\\n        "));
}

std::string functionName(const std::string& words) {
    std::string name = words;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name.empty() ? "_vesk" : "_vesk_" + name;
}

std::vector<std::string> optionWords(const std::vector<OptionEntry>& options) {
    std::vector<std::string> words;
    for (const OptionEntry& option : options) {
        words.push_back(optionWord(option));
    }
    return words;
}

/// A function that completes one of some commands, and hands on what follows.
std::string familyFunction(const std::string& words, const std::vector<OptionEntry>& options,
                           const std::vector<CommandEntry>& commands) {
    std::vector<std::string> specifications = optionWords(options);
    specifications.emplace_back("'1:command:->command'");
    specifications.emplace_back("'*::argument:->argument'");
    std::string list;
    std::string cases;
    for (const CommandEntry& command : commands) {
        list += "            " + quoted(command.name + ":" + escaped(command.summary)) + "\n";
        const std::string name =
            functionName(words.empty() ? command.name : words + " " + command.name);
        cases += fmt::format("        {}) {} ;;\n", command.name, name);
    }
    return fmt::format("\n{}() {{\n    local curcontext=$curcontext state state_descr line\n"
                       "    typeset -A opt_args\n{}    case $state in\n    command)\n"
                       "        local -a commands\n        commands=(\n{}        )\n"
                       "        _describe -t commands command commands\n        ;;\n"
                       "    argument)\n        case $line[1] in\n{}        esac\n        ;;\n"
                       "    esac\n}}\n",
                       functionName(words), arguments(specifications), list, cases);
}

std::string commandFunction(const NamedCommand& one, const std::vector<OptionEntry>& options) {
    std::vector<std::string> specifications = optionWords(options);
    for (const ArgumentEntry& argument : one.command->arguments) {
        const std::string what =
            fmt::format("{}:{}", argument.label, suggestion(kindOf(argument), argument.label));
        specifications.push_back(quoted((argument.isRepeated ? "*:" : ":") + what));
    }
    return fmt::format("\n{}() {{\n{}}}\n", functionName(one.words), arguments(specifications));
}

} // namespace

std::string zshCompletion(const CommandEntry& vesk) {
    std::string script = fmt::format("#compdef vesk\n# Completion of vesk for zsh.\n"
                                     "\n_vesk_list_ringtones() {{\n    {}\n}}\n"
                                     "\n_vesk_list_phones() {{\n    {}\n}}\n",
                                     kListRingtones, kListPhones) +
                         kFunctions;
    for (const NamedCommand& one : commandsOf(vesk)) {
        const auto options = optionsOf(vesk, *one.command);
        script += one.command->commands.empty()
                      ? commandFunction(one, options)
                      : familyFunction(one.words, options, one.command->commands);
    }
    return script + familyFunction("", vesk.options, vesk.commands) + "\n_vesk \"$@\"\n";
}

} // namespace vesk
