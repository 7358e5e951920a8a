#include "vesk/manual/Completions.h"
#include "vesk/manual/Values.h"

#include <fmt/format.h>

namespace vesk {
namespace {

/// Works through the words before the one that is completed, then suggests.
constexpr char kFunctions[] = R"bash(
_vesk_matching() {
    local name typed=$cur quote=
    case $typed in
    [\'\"]*) quote=yes typed=${typed:1} ;;
    *) typed=${typed//\\/} ;;
    esac
    while IFS= read -r name; do
        if [[ $name == "$typed"* ]]; then
            [[ $quote ]] || printf -v name %q "$name"
            COMPREPLY+=("$name")
        fi
    done
}

_vesk_suggest() {
    case $1 in
    files) compopt -o default ;;
    folders)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        ;;
    phones) _vesk_matching < <(_vesk_phones) ;;
    ringtones)
        if [[ $cur == */* ]]; then
            compopt -o default
        else
            _vesk_matching < <(_vesk_ringtones)
        fi
        ;;
    words) mapfile -t COMPREPLY < <(compgen -W "$2" -- "$cur") ;;
    esac
}

_vesk() {
    local cur=${COMP_WORDS[COMP_CWORD]} command= place=0 i word value
    COMPREPLY=()
    for ((i = 1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        if [[ $word == -* ]]; then
            if [[ $(_vesk_value "$command" "$word") ]]; then
                ((++i))
                if [[ ${COMP_WORDS[i]} == = ]]; then # --option=value is three words
                    ((++i))
                fi
            fi
        elif [[ -z $command || $(_vesk_commands "$command") ]]; then
            command+=${command:+ }$word
        else
            ((++place))
        fi
    done
    i=$((COMP_CWORD - 1)) value=
    if [[ $cur == = ]]; then
        cur=
    elif ((i > 1)) && [[ ${COMP_WORDS[i]} == = ]]; then
        ((--i))
    fi
    if ((i > 0)); then
        value=$(_vesk_value "$command" "${COMP_WORDS[i]}")
    fi
    if [[ $value ]]; then
        _vesk_suggest ${value%% *} "${value#* }"
    elif [[ $cur == -* ]]; then
        _vesk_suggest words "$(_vesk_options "$command")"
    elif [[ -z $command || $(_vesk_commands "$command") ]]; then
        _vesk_suggest words "$(_vesk_commands "$command")"
    else
        _vesk_suggest $(_vesk_argument "$command" "$place")
    fi
}

complete -F _vesk vesk
)bash";

/// What _vesk_suggest() is told.
std::string suggestion(ValueKind kind, const std::string& label) {
    switch (kind) {
    case ValueKind::Files:
        return "files";
    case ValueKind::Folders:
        return "folders";
    case ValueKind::Phones:
        return "phones";
    case ValueKind::Ringtones:
        return "ringtones";
    case ValueKind::Choices:
        return fmt::format("words {}", fmt::join(choicesIn(label), " "));
    case ValueKind::Nothing:
        break;
    }
    return "nothing";
}

std::string function(const std::string& name, const std::string& cases) {
    return fmt::format("\n{}() {{\n    case $1 in\n{}    esac\n}}\n", name, cases);
}

std::string line(const std::string& pattern, const std::string& text) {
    return fmt::format("    {}) echo {} ;;\n", pattern, quoted(text));
}

std::string joined(const std::vector<CommandEntry>& commands) {
    std::string names;
    for (const CommandEntry& command : commands) {
        names += (names.empty() ? "" : " ") + command.name;
    }
    return names;
}

std::string commandCases(const CommandEntry& vesk) {
    std::string cases = line("''", joined(vesk.commands));
    for (const NamedCommand& one : commandsOf(vesk)) {
        cases += one.command->commands.empty()
                     ? ""
                     : line(quoted(one.words), joined(one.command->commands));
    }
    return cases;
}

std::string optionWords(const std::vector<OptionEntry>& options) {
    std::string words;
    for (const OptionEntry& option : options) {
        words += (words.empty() ? "" : " ") + option.names.back();
    }
    return words;
}

std::string optionCases(const CommandEntry& vesk) {
    std::string cases = line("''", optionWords(vesk.options));
    for (const NamedCommand& one : commandsOf(vesk)) {
        cases += line(quoted(one.words), optionWords(optionsOf(vesk, *one.command)));
    }
    return cases;
}

/// What each option with a value wants: one of a command before one of every command.
std::string valueCases(const CommandEntry& vesk) {
    std::string cases;
    const auto add = [&](const std::string& pattern, const OptionEntry& option) {
        if (!option.value.empty()) {
            cases += line(pattern, suggestion(kindOf(option), option.value));
        }
    };
    for (const NamedCommand& one : commandsOf(vesk)) {
        for (const OptionEntry& option : one.command->options) {
            for (const std::string& name : option.names) {
                add(quoted(one.words + " " + name), option);
            }
        }
    }
    for (const OptionEntry& option : vesk.options) {
        for (const std::string& name : option.names) {
            add("*' " + name + "'", option);
        }
    }
    return cases;
}

std::string argumentCases(const CommandEntry& vesk) {
    std::string cases;
    for (const NamedCommand& one : commandsOf(vesk)) {
        size_t place = 0;
        for (const ArgumentEntry& argument : one.command->arguments) {
            const std::string words = quoted(one.words + " ");
            cases += line(words + (argument.isRepeated ? "*" : std::to_string(place)),
                          suggestion(kindOf(argument), argument.label));
            ++place;
        }
    }
    return cases + line("*", "nothing");
}

} // namespace

std::string bashCompletion(const CommandEntry& vesk) {
    return fmt::format("# Completion of vesk for bash.\n\n_vesk_ringtones() {{\n    {}\n}}\n\n"
                       "_vesk_phones() {{\n    {}\n}}\n",
                       kListRingtones, kListPhones) +
           "\n# What a command has: commands, options; what its options and arguments want.\n" +
           function("_vesk_commands", commandCases(vesk)) +
           function("_vesk_options", optionCases(vesk)) +
           "\n_vesk_value() {\n    case \"$1 $2\" in\n" + valueCases(vesk) + "    esac\n}\n" +
           "\n_vesk_argument() {\n    case \"$1 $2\" in\n" + argumentCases(vesk) + "    esac\n}\n" +
           kFunctions;
}

} // namespace vesk
