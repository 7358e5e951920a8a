#include "vesk/manual/ManPages.h"

#include "vesk/manual/Values.h"

#include <fmt/format.h>

#include <algorithm>

namespace vesk {
namespace {

/// A text in which nothing is a request or an escape.
std::string plain(const std::string& text) {
    std::string result;
    bool isLineStart = true;
    for (const char character : text) {
        const bool isRequest = isLineStart && (character == '.' || character == '\'');
        result += isRequest ? "\\&" : "";
        result += character == '\\' ? "\\e" : character == '-' ? "\\-" : std::string(1, character);
        isLineStart = character == '\n';
    }
    return result;
}

std::string bold(const std::string& text) {
    return "\\fB" + plain(text) + "\\fR";
}

std::string italic(const std::string& text) {
    return "\\fI" + plain(text) + "\\fR";
}

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char character) {
        return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A')
                                                    : character;
    });
    return text;
}

std::string line(const std::string& text) {
    return plain(onOneLine(text)) + "\n";
}

std::string paragraph(const std::string& text) {
    return ".PP\n" + line(text);
}

std::string heading(const std::string& name, const std::string& title) {
    return fmt::format(".TH {} 1 \"\" \"vesk {}\" \"User Commands\"\n.SH NAME\n{} \\- {}\n",
                       plain(upperCase(name)), VESK_VERSION, plain(name), plain(title));
}

std::string item(const std::string& tag, const std::string& text) {
    return ".TP\n" + tag + "\n" + line(text);
}

std::string optionItem(const OptionEntry& option) {
    std::string tag;
    for (const std::string& name : option.names) {
        tag += (tag.empty() ? "" : ", ") + bold(name);
    }
    return item(tag + (option.value.empty() ? "" : " " + italic(option.value)), option.meaning);
}

std::string optionItems(const std::vector<OptionEntry>& options) {
    std::string items;
    for (const OptionEntry& option : options) {
        items += optionItem(option);
    }
    return items;
}

std::string synopsis(const std::string& words, const CommandEntry& command) {
    std::string line = bold("vesk " + words) + " [" + italic("OPTIONS") + "]";
    for (const ArgumentEntry& argument : command.arguments) {
        const std::string label =
            italic(argument.label) + (argument.isRepeated ? "\\|.\\|.\\|." : "");
        line += argument.isRequired ? " " + label : " [" + label + "]";
    }
    return line + "\n";
}

std::string pageName(const std::string& command) {
    return "vesk-" + command;
}

/// In the manual's order.
std::string seeAlso(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    std::string result = ".SH SEE ALSO\n";
    for (const std::string& name : names) {
        result += ".BR " + plain(name) + (name == names.back() ? " (1)\n" : " (1),\n");
    }
    return result;
}

std::string argumentItems(const CommandEntry& command) {
    std::string items;
    for (const ArgumentEntry& argument : command.arguments) {
        items += item(italic(argument.label), argument.meaning);
    }
    return items;
}

std::string sectionOf(const std::string& words, const CommandEntry& command) {
    return ".SS " + plain("vesk " + words) + "\n" + synopsis(words, command) +
           paragraph(command.summary + ".") + paragraph(command.promise) + argumentItems(command) +
           optionItems(command.options);
}

std::string commandPage(const CommandEntry& command) {
    std::string page = heading(pageName(command.name), command.summary) + ".SH SYNOPSIS\n";
    if (command.commands.empty()) {
        page += synopsis(command.name, command);
    }
    for (const CommandEntry& one : command.commands) {
        page += synopsis(command.name + " " + one.name, one) + ".br\n";
    }
    page += ".SH DESCRIPTION\n" + line(command.summary + ".") + paragraph(command.promise) +
            argumentItems(command);
    if (!command.commands.empty()) {
        page += ".SH COMMANDS\n";
    }
    for (const CommandEntry& one : command.commands) {
        page += sectionOf(command.name + " " + one.name, one);
    }
    page += ".SH OPTIONS\n" + optionItems(command.options) +
            paragraph("Those that every command takes, and all exit codes, are in vesk(1).");
    return page + seeAlso({"vesk"});
}

/// What stands in the description of the parser behind its title.
std::string descriptionIn(const std::string& text) {
    const size_t title = text.find("\n\n");
    return title == std::string::npos ? text : text.substr(title + 2);
}

std::string titleIn(const std::string& text) {
    const size_t name = text.find(": ");
    const size_t end = text.find('\n');
    return name == std::string::npos ? text : text.substr(name + 2, end - name - 2);
}

std::string exitStatus() {
    std::string items = ".SH EXIT STATUS\n" + item(bold("0"), "All is done.");
    for (const ExitCodeRow& row : exitCodes()) {
        if (row.code != ExitCode::Success) {
            items += item(bold(std::to_string(static_cast<int>(row.code))),
                          fmt::format("{} ({} in JSON)", row.meaning, row.name));
        }
    }
    return items;
}

std::string surroundings() {
    return ".SH ENVIRONMENT\n" +
           item(bold("NO_COLOR"), "Set to anything: no colours on a terminal.") +
           item(bold("USBMUXD_SOCKET_ADDRESS"),
                "Where the usbmux daemon listens: UNIX:PATH or HOST:PORT, in place of "
                "/var/run/usbmuxd.") +
           item(bold("XDG_STATE_HOME"), "Where the safe is, in place of ~/.local/state.") +
           item(bold("XDG_CACHE_HOME"),
                "Where prepared ringtones and digests of songs are kept, in place of ~/.cache.") +
           ".SH FILES\n" +
           item(italic("~/.local/state/krlvesk"),
                "What phones held before the last jobs, for vesk undo, and which phones were "
                "paired. Only you can look into it.") +
           item(italic("~/.cache/krlvesk"),
                "Ringtones made of songs. Nothing is lost when it is deleted.");
}

std::string mainPage(const CommandEntry& vesk) {
    std::string page = heading(vesk.name, titleIn(vesk.summary)) + ".SH SYNOPSIS\n" + bold("vesk") +
                       " [" + italic("OPTIONS") + "] " + italic("COMMAND") + "\n.SH DESCRIPTION\n" +
                       paragraph(descriptionIn(vesk.summary)) + ".SH COMMANDS\n";
    std::vector<std::string> pages;
    for (const CommandEntry& command : vesk.commands) {
        page +=
            ".TP\n.BR " + plain(pageName(command.name)) + " (1)\n" + plain(command.summary) + ".\n";
        pages.push_back(pageName(command.name));
    }
    return page + ".SH OPTIONS\n" + optionItems(vesk.options) + exitStatus() + surroundings() +
           seeAlso(pages);
}

} // namespace

std::map<std::string, std::string> manPages(const CommandEntry& vesk) {
    std::map<std::string, std::string> pages{{"vesk.1", mainPage(vesk)}};
    for (const CommandEntry& command : vesk.commands) {
        pages[pageName(command.name) + ".1"] = commandPage(command);
    }
    return pages;
}

} // namespace vesk
