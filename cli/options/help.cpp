// What is made of the table of options: help, 80 columns wide, and the JSON for the generators of manual pages and
// completion.
#include "cli/options/help.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "cli/outcome/exits.h"
#include "cli/show/fact.h"

namespace quorl::cli {
namespace {

using enum ValueKind;

constexpr size_t WIDTH = 80;
constexpr size_t HELP_INDENT = 25;

/// "  left          right, which goes on below itself where it is long".
std::string Row(std::string_view left, std::string_view right) {
  std::string text = fmt::format("  {:<{}}", left, HELP_INDENT - 3);
  text += text.size() >= HELP_INDENT ? "\n" + std::string(HELP_INDENT, ' ') : " ";
  size_t column = HELP_INDENT;
  for (bool first = true; !right.empty(); first = false) {
    std::string_view word = right.substr(0, right.find(' '));
    right.remove_prefix(std::min(right.size(), word.size() + 1));
    if (!first && column + 1 + word.size() > WIDTH) {
      text += "\n" + std::string(HELP_INDENT, ' ');
      column = HELP_INDENT;
    } else if (!first) {
      text += ' ';
      ++column;
    }
    text += word;
    column += word.size();
  }
  return text + '\n';
}

std::string OptionsText(const CommandRow& command) {
  std::string text = "\nOptions:\n";
  for (const OptionRow& row : OptionRows()) {
    if ((row.commands & static_cast<unsigned>(command.verb)) == 0) continue;
    bool isShort = *row.shortName != '\0';
    text += Row(fmt::format("{}{}{}{}{}", isShort ? row.shortName : "   ", isShort ? ", " : " ", row.name,
                            *row.argument != '\0' ? " " : "", row.argument),
                row.help);
  }
  text += Row("-h, --help", "show this");
  return text + "\nEach can stand in the environment instead: --log as QUORL_LOG, --json as\nQUORL_JSON=1.\n";
}

const char* KindName(ValueKind kind) {
  switch (kind) {
    case None: return "none";
    case Text: return "text";
    case File: return "file";
    case Directory: return "directory";
    case ValueKind::Interface: return "interface";
    case Choice: return "choice";
  }
  return "";
}

Fact Describe(const OptionRow& row) {
  Fact fact("option");
  fact.Add("name", row.name).Add("short", row.shortName).Add("argument", row.argument).Add("kind", KindName(row.kind));
  return fact.Add("environment", EnvironmentName(row)).Add("help", row.help);
}

Fact Describe(const CommandRow& command) {
  std::vector<Fact> options;
  for (const OptionRow& row : OptionRows()) {
    if ((row.commands & static_cast<unsigned>(command.verb)) != 0) options.push_back(Describe(row));
  }
  Fact fact("command");
  fact.Add("name", command.name).Add("summary", command.summary).Add("arguments", command.arguments);
  return fact.Add("arguments_help", command.argumentsHelp).Add("options", options);
}

}  // namespace

std::string HelpText(const CommandRow* command) {
  if (command != nullptr) {
    std::string text = fmt::format("Usage: quorl {}{}{} [options]\n\n", command->name,
                                   *command->arguments != '\0' ? " " : "", command->arguments);
    text += fmt::format("{}.\n", command->summary);
    if (*command->arguments != '\0') text += "\n" + Row(command->arguments, command->argumentsHelp);
    return text + OptionsText(*command);
  }
  std::string text =
      "Sends files and directories from one machine to a whole room of machines at once.\n\n"
      "  quorl receive          on every machine that is to get the files, in the\n"
      "                         directory for them\n"
      "  quorl send PATH...     on the machine that has them\n\nCommands:\n";
  for (const CommandRow& row : CommandRows()) text += Row(row.name, row.summary);
  text += "\n\"quorl COMMAND --help\" shows the options of one.\n\nExit codes:\n";
  for (const ExitRow& row : ExitRows()) text += Row(std::to_string(row.code), row.meaning);
  return text;
}

std::string VersionText() {
  return "quorl " QUORL_VERSION "\nGroup 235.9.2.9, port 27001, replies on port 27003, heartbeat on port 28000.\n";
}

std::string OptionTableAsJson() {
  std::vector<Fact> commands;
  for (const CommandRow& command : CommandRows()) commands.push_back(Describe(command));
  std::vector<Fact> exits;
  for (const ExitRow& row : ExitRows()) {
    Fact fact("exit");
    exits.push_back(fact.Add("code", row.code).Add("meaning", row.meaning));
  }
  Fact table("options");
  table.Add("program", "quorl").Add("version", QUORL_VERSION).Add("commands", commands).Add("exit_codes", exits);
  return fmt::format("{{{}}}", table.Fields());
}

}  // namespace quorl::cli
