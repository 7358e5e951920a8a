#pragma once

#include "vesk/CommandParser.h"

#include <string>
#include <vector>

namespace vesk {

/// What a value or an argument is, so that a shell can suggest some.
enum class ValueKind { Nothing, Files, Folders, Phones, Ringtones, Choices };

// What stands for it in the help ("DIR", "tags|file", ...) tells it.
ValueKind kindOf(const OptionEntry& option);
ValueKind kindOf(const ArgumentEntry& argument);

/// "tags" and "file" of "tags|file".
std::vector<std::string> choicesIn(const std::string& label);

/// The options that can be given to a command: its own, and those of every command.
std::vector<OptionEntry> optionsOf(const CommandEntry& vesk, const CommandEntry& command);

/// A command by all its words behind "vesk", such as "plugin status".
struct NamedCommand {
    std::string words;
    const CommandEntry* command;
};

/// The commands of a tree, families before theirs, without its root.
std::vector<NamedCommand> commandsOf(const CommandEntry& vesk);

/// Shell words that print the names of the phone's ringtones or the UDIDs of phones, one a line.
/// Hardly waits for a phone to appear.
extern const char* const kListRingtones;
extern const char* const kListPhones;

/// In single quotes, as all shells read them.
std::string quoted(const std::string& text);

/// A text without line breaks.
std::string onOneLine(std::string text);

} // namespace vesk
