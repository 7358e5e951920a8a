#include "vesk/manual/Completions.h"
#include "vesk/manual/Values.h"

#include <fmt/format.h>

namespace vesk {
namespace {

constexpr char kFunctions[] = R"fish(
# The words behind "vesk" that are no options, and the values of none.
function __vesk_words
    set -l words (commandline -opc)
    set -e words[1]
    set -l skips no
    for word in $words
        if test $skips = yes
            set skips no
        else if string match -q -- '-*' $word
            contains -- $word $__vesk_with_value; and set skips yes
        else
            echo $word
        end
    end
end

# Whether the command is this one, by all its words.
function __vesk_is
    set -l words (__vesk_words)
    set -l length (count $argv)
    test $length -gt 0; or return 0
    test (count $words) -ge $length; and test "$words[1..$length]" = "$argv"
end

# The same, with so many words behind it.
function __vesk_at
    __vesk_is $argv[2..-1]; and test (count (__vesk_words)) -eq (math $argv[1] + (count $argv) - 1)
end
)fish";

/// How a value is completed, in fish's words.
std::string suggestion(ValueKind kind, const std::string& label) {
    switch (kind) {
    case ValueKind::Files:
        return " -F";
    case ValueKind::Folders:
        return " -f -a '(__fish_complete_directories)'";
    case ValueKind::Phones:
        return " -f -a '(__vesk_phones)'";
    case ValueKind::Ringtones:
        return " -f -a '(__vesk_ringtones)'";
    case ValueKind::Choices:
        return fmt::format(" -f -a '{}'", fmt::join(choicesIn(label), " "));
    case ValueKind::Nothing:
        break;
    }
    return " -f";
}

std::string condition(const std::string& words) {
    return words.empty() ? "" : fmt::format(" -n '__vesk_is {}'", words);
}

std::string optionLine(const std::string& words, const OptionEntry& option) {
    std::string line = "complete -c vesk" + condition(words);
    for (const std::string& name : option.names) {
        line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    }
    line += option.value.empty() ? "" : " -r" + suggestion(kindOf(option), option.value);
    return line + " -d " + quoted(option.meaning) + "\n";
}

std::string commandLine(const std::string& words, const CommandEntry& command) {
    return fmt::format("complete -c vesk -n '__vesk_at 0{}' -f -a {} -d {}\n",
                       words.empty() ? "" : " " + words, command.name, quoted(command.summary));
}

std::string argumentLines(const NamedCommand& one) {
    std::string lines;
    size_t place = 0;
    for (const ArgumentEntry& argument : one.command->arguments) {
        const std::string where = argument.isRepeated
                                      ? condition(one.words)
                                      : fmt::format(" -n '__vesk_at {} {}'", place, one.words);
        const ValueKind kind = kindOf(argument);
        lines += kind == ValueKind::Nothing
                     ? ""
                     : "complete -c vesk" + where + suggestion(kind, argument.label) + "\n";
        ++place;
    }
    return lines;
}

/// The options behind which a value stands.
std::string withValue(const CommandEntry& vesk) {
    std::string names;
    const auto add = [&](const std::vector<OptionEntry>& options) {
        for (const OptionEntry& option : options) {
            for (const std::string& name : option.names) {
                names += option.value.empty() ? "" : " " + name;
            }
        }
    };
    add(vesk.options);
    for (const NamedCommand& one : commandsOf(vesk)) {
        add(one.command->options);
    }
    return names;
}

} // namespace

std::string fishCompletion(const CommandEntry& vesk) {
    std::string script =
        fmt::format("# Completion of vesk for fish.\n\nset -g __vesk_with_value{}\n"
                    "\nfunction __vesk_ringtones\n    {}\nend\n"
                    "\nfunction __vesk_phones\n    {}\nend\n",
                    withValue(vesk), kListRingtones, kListPhones) +
        kFunctions + "\ncomplete -c vesk -f\n";
    for (const OptionEntry& option : vesk.options) {
        script += optionLine("", option);
    }
    for (const CommandEntry& command : vesk.commands) {
        script += commandLine("", command);
        for (const CommandEntry& one : command.commands) {
            script += commandLine(command.name, one);
        }
    }
    for (const NamedCommand& one : commandsOf(vesk)) {
        for (const OptionEntry& option : one.command->options) {
            const bool isHelp = option.names.back() == "--help";
            script += isHelp ? "" : optionLine(one.words, option);
        }
        script += argumentLines(one);
    }
    return script;
}

} // namespace vesk
