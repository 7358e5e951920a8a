// Manual pages and completions against the grammar that they are made of.
#include "vesk/manual/Completions.h"
#include "vesk/manual/ManPages.h"
#include "vesk/manual/Values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace vesk {
namespace {

const CommandEntry& commandNamed(const CommandEntry& tree, const std::string& name) {
    const auto found =
        std::find_if(tree.commands.begin(), tree.commands.end(),
                     [&](const CommandEntry& command) { return command.name == name; });
    if (found == tree.commands.end()) {
        throw std::out_of_range("no command " + name);
    }
    return *found;
}

const OptionEntry* optionNamed(const std::vector<OptionEntry>& options, const std::string& name) {
    const auto found = std::find_if(options.begin(), options.end(), [&](const OptionEntry& option) {
        return option.names.back() == name;
    });
    return found == options.end() ? nullptr : &*found;
}

/// As a manual page writes it.
std::string dashed(std::string text) {
    for (size_t at = 0; (at = text.find('-', at)) != std::string::npos; at += 2) {
        text.insert(at, "\\");
    }
    return text;
}

CommandEntry oneCommand(const std::string& promise) {
    return {.name = "vesk",
            .summary = "vesk: a title\n\nText.",
            .commands = {{.name = "do", .summary = "Do it", .promise = promise}}};
}

} // namespace

TEST(CommandTree, KnowsArgumentsAndOptionsAsTheyAreWritten) {
    const CommandEntry tree = commandTree();
    const CommandEntry& rename = commandNamed(tree, "rename");
    ASSERT_EQ(rename.arguments.size(), 2U);
    EXPECT_EQ(rename.arguments[0].label, "OLD");
    EXPECT_EQ(rename.arguments[1].label, "NEW");
    EXPECT_TRUE(rename.arguments[0].isRequired);
    EXPECT_FALSE(rename.arguments[0].isRepeated);

    const CommandEntry& get = commandNamed(tree, "get");
    ASSERT_EQ(get.arguments.size(), 1U);
    EXPECT_FALSE(get.arguments[0].isRequired) << "--all stands in its place";
    EXPECT_TRUE(get.arguments[0].isRepeated);
    const OptionEntry* const output = optionNamed(get.options, "--output");
    ASSERT_NE(output, nullptr);
    EXPECT_THAT(output->names, ElementsAre("-o", "--output"));
    EXPECT_EQ(output->value, "DIR");

    const OptionEntry* const noLevel =
        optionNamed(commandNamed(tree, "prepare").options, "--no-level");
    ASSERT_NE(noLevel, nullptr);
    EXPECT_THAT(noLevel->value, IsEmpty());
    EXPECT_EQ(commandNamed(tree, "plugin").commands.size(), 4U);
}

TEST(CommandTree, OnlyWhatWritesTakesADryRun) {
    const CommandEntry tree = commandTree();
    const auto takes = [&](const char* name) {
        return optionNamed(optionsOf(tree, commandNamed(tree, name)), "--dry-run") != nullptr;
    };
    EXPECT_TRUE(takes("sync"));
    EXPECT_TRUE(takes("undo"));
    EXPECT_FALSE(takes("list"));
    EXPECT_FALSE(takes("prepare"));
}

TEST(ManPages, EveryCommandHasOneWithAllItsOptions) {
    const CommandEntry tree = commandTree();
    const auto pages = manPages(tree);
    const std::string& main = pages.at("vesk.1");
    for (const CommandEntry& command : tree.commands) {
        EXPECT_THAT(main, HasSubstr("\n.BR " + dashed("vesk-" + command.name) + " (1)\n"));
    }
    for (const NamedCommand& one : commandsOf(tree)) {
        const std::string& page =
            pages.at("vesk-" + one.words.substr(0, one.words.find(' ')) + ".1");
        if (one.command->commands.empty()) {
            EXPECT_THAT(page, HasSubstr("\\fBvesk " + one.words + "\\fR"));
        }
        EXPECT_THAT(page, HasSubstr(dashed(onOneLine(one.command->promise))));
        for (const OptionEntry& option : one.command->options) {
            EXPECT_THAT(page, HasSubstr("\\fB" + dashed(option.names.back()) + "\\fR"));
        }
        for (const ArgumentEntry& argument : one.command->arguments) {
            EXPECT_THAT(page, HasSubstr(".TP\n\\fI" + argument.label + "\\fR\n"));
        }
    }
    EXPECT_EQ(pages.size(), tree.commands.size() + 1);
}

TEST(ManPages, EveryExitCodeIsInTheMainOne) {
    const std::string page = manPages(commandTree()).at("vesk.1");
    for (const ExitCodeRow& row : exitCodes()) {
        EXPECT_THAT(page,
                    HasSubstr("\n\\fB" + std::to_string(static_cast<int>(row.code)) + "\\fR\n"));
    }
}

TEST(ManPages, NothingInATextIsARequestOrAnEscape) {
    const std::string page = manPages(oneCommand(".so /etc/passwd and \\fB")).at("vesk-do.1");
    EXPECT_THAT(page, HasSubstr("\n\\&.so /etc/passwd and \\efB\n"));
    EXPECT_THAT(page, Not(HasSubstr("\n.so")));
}

TEST(Completions, EachShellKnowsEveryCommandAndOption) {
    const CommandEntry tree = commandTree();
    const std::string bash = bashCompletion(tree);
    const std::string zsh = zshCompletion(tree);
    const std::string fish = fishCompletion(tree);
    for (const NamedCommand& one : commandsOf(tree)) {
        EXPECT_THAT(bash, HasSubstr("    '" + one.words + "') echo "));
        EXPECT_THAT(zsh, HasSubstr("'" + one.command->name + ":"));
        EXPECT_THAT(fish, HasSubstr(" -f -a " + one.command->name + " -d "));
        for (const OptionEntry& option : optionsOf(tree, *one.command)) {
            const std::string& name = option.names.back();
            EXPECT_THAT(bash, HasSubstr(name));
            EXPECT_THAT(zsh, HasSubstr(name));
            EXPECT_THAT(fish, HasSubstr(" -l " + name.substr(2) + " "));
        }
    }
}

TEST(Completions, QuotesInTextsEndNoWord) {
    EXPECT_EQ(quoted("a phone's name"), R"('a phone'\''s name')");
}

} // namespace vesk
