// Help from the table of options, 80 columns wide.
#include "cli/help.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "cli/outcome.h"

namespace quorl::cli {
namespace {

constexpr size_t WIDTH = 80;
constexpr size_t INDENT = 25;

/// "  left          right, which goes on below itself where it is long".
std::string Row(std::string_view left, std::string_view right) {
  std::string text = fmt::format("  {:<{}}", left, INDENT - 3);
  text += text.size() >= INDENT ? "\n" + std::string(INDENT, ' ') : " ";
  size_t column = INDENT;
  for (bool first = true; !right.empty(); first = false) {
    std::string_view word = right.substr(0, right.find(' '));
    right.remove_prefix(std::min(right.size(), word.size() + 1));
    if (!first && column + 1 + word.size() > WIDTH) {
      text += "\n" + std::string(INDENT, ' ');
      column = INDENT;
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
    if ((row.commands & static_cast<unsigned>(command.command)) == 0) continue;
    bool isShort = *row.shortName != '\0';
    text += Row(fmt::format("{}{}{}{}{}", isShort ? row.shortName : "   ", isShort ? ", " : " ", row.name,
                            *row.argument != '\0' ? " " : "", row.argument),
                row.help);
  }
  text += Row("-h, --help", "show this");
  return text + "\nEach can stand in the environment instead: --log as QUORL_LOG, --json as\nQUORL_JSON=1.\n";
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

}  // namespace quorl::cli
