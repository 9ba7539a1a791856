// The command line. The only file that knows the parser: it compiles for ten seconds, and the rest of the command is
// tested with plain structures.
#include "cli/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <string_view>

#include "cli/escape.h"
#include "cli/help.h"
#include "cli/option_table.h"
#include "cli/outcome.h"

namespace quorl::cli {
namespace {

Failure WrongUse(const std::string& what, const std::string& why, std::vector<std::string> next) {
  return {Exit::Usage, what, why, std::move(next)};
}

void AddOption(CLI::App& command, const OptionRow& row, Options& options, bool isAsked) {
  std::string names = *row.shortName == '\0' ? row.name : std::string(row.shortName) + "," + row.name;
  auto set = [&row, &options](const std::string& text) {
    try {
      row.set(options, text);
    } catch (const WrongValue& wrong) {
      throw WrongUse(std::string(row.name) + " cannot be taken", Escape(wrong.why), {});
    }
  };
  CLI::Option* option = nullptr;
  if (*row.argument == '\0') {
    auto setFlag = [set](int64_t count) {
      if (count > 0) set(std::to_string(count));
    };
    option = command.add_flag_function(names, setFlag);
  } else {
    option = command.add_option_function<std::string>(names, set);
  }
  // The parser would read the environment for the options of the other commands too.
  if (isAsked) option->envname(EnvironmentName(row));
}

void AddCommand(CLI::App& app, const CommandRow& row, std::string_view asked, Options& options,
                std::vector<std::string>& words) {
  CLI::App* command = app.add_subcommand(row.name);
  bool isAsked = asked == row.name;
  // What is left over is judged here, where a near name can be offered.
  command->allow_extras();
  if (*row.arguments != '\0') command->add_option(row.arguments, words);
  for (const OptionRow& option : OptionRows()) {
    if ((option.commands & static_cast<unsigned>(row.command)) != 0) AddOption(*command, option, options, isAsked);
  }
}

/// How many letters have to be put in, taken out or exchanged to make one word of the other.
size_t Distance(const std::string& left, const std::string& right) {
  std::vector<size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < left.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < right.size(); ++j) {
      size_t replaced = diagonal + (left[i] == right[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

std::vector<std::string> Suggest(const std::string& word, const std::vector<std::string>& known) {
  auto nearer = [&](const std::string& a, const std::string& b) { return Distance(word, a) < Distance(word, b); };
  auto nearest = std::min_element(known.begin(), known.end(), nearer);
  if (nearest == known.end() || Distance(word, *nearest) > std::max<size_t>(2, word.size() / 3)) return {};
  return {"Did you mean " + *nearest + "?"};
}

void RejectUnknownCommand(int argumentCount, const char* const* arguments) {
  std::vector<std::string> known;
  for (const CommandRow& row : CommandRows()) known.emplace_back(row.name);
  if (argumentCount < 2) {
    throw WrongUse(
        "quorl what?", "no command is named",
        {"quorl receive          on every machine that is to get the files, in the directory for them",
         "quorl send PATH...     on the machine that has them",
         "quorl demo             the whole thing on this machine alone", "\"quorl --help\" tells the rest."});
  }
  std::string word = arguments[1];
  if (word.starts_with('-') || std::find(known.begin(), known.end(), word) != known.end()) return;
  auto next = Suggest(word, known);
  next.emplace_back("\"quorl --help\" shows the commands.");
  throw WrongUse("there is no command \"" + Escape(word) + "\"", "", next);
}

void RejectUnknownWords(const CLI::App& app) {
  auto unknown = app.remaining(true);
  if (unknown.empty() && !app.get_subcommands().empty()) return;
  if (unknown.empty()) unknown.emplace_back("--");
  const CLI::App* command = app.get_subcommands().empty() ? nullptr : app.get_subcommands().front();
  std::vector<std::string> known;
  std::string name = command == nullptr ? "" : command->get_name() + " ";
  if (command != nullptr) {
    for (const CLI::Option* option : command->get_options()) {
      if (!option->get_positional()) known.push_back(option->get_name());
    }
  }
  std::string word = unknown.front();
  auto next = word.starts_with("-") ? Suggest(word.substr(0, word.find('=')), known) : std::vector<std::string>{};
  next.push_back("\"quorl " + name + "--help\" shows what there is.");
  throw WrongUse("quorl " + name + "does not know \"" + Escape(word) + "\"", "", next);
}

void TakeWords(Options& options, const std::vector<std::string>& words, int argumentCount,
               const char* const* arguments) {
  if (options.command == Command::Send) {
    options.send.paths = words;
    options.send.again = AgainText(std::vector<std::string>(arguments + 1, arguments + argumentCount));
    if (!words.empty()) return;
    throw WrongUse("nothing to send", "no file or directory is named",
                   {"quorl send images/ setup.msi           shows who listens, and asks before it starts",
                    "quorl send images/ --yes --rate 400M   starts at once, at 400 Mbit/s",
                    "\"quorl list\" shows who listens.", "\"quorl send --help\" tells the rest."});
  }
  if (words.empty()) return;
  // A directory that is named goes before one in the environment, but not silently before --to.
  bool named = !options.receive.directory.empty() && std::getenv("QUORL_TO") == nullptr;
  if (words.size() > 1 || named) throw WrongUse("more than one directory is named", "everything goes to one", {});
  options.receive.directory = words.front();
}

const CommandRow* RowOf(const CLI::App& app) {
  auto parsed = app.get_subcommands();
  for (const CommandRow& row : CommandRows()) {
    if (!parsed.empty() && parsed.front()->get_name() == row.name) return &row;
  }
  return nullptr;
}

}  // namespace

Invocation ParseCommandLine(int argumentCount, const char* const* arguments) {
  RejectUnknownCommand(argumentCount, arguments);
  Invocation invocation;
  Options& options = invocation.options;
  CLI::App app("", "quorl");
  app.set_version_flag("--version", "");
  app.allow_extras();
  std::vector<std::string> words;
  for (const CommandRow& row : CommandRows()) AddCommand(app, row, arguments[1], options, words);
  try {
    app.parse(argumentCount, arguments);
  } catch (const CLI::CallForHelp&) {
    invocation.text = HelpText(RowOf(app));
    return invocation;
  } catch (const CLI::CallForVersion&) {
    invocation.text = VersionText();
    return invocation;
  } catch (const CLI::ParseError& error) {
    throw WrongUse("wrong use", error.what(), {"\"quorl --help\" helps."});
  }
  const CommandRow* row = RowOf(app);
  RejectUnknownWords(app);
  options.command = row->command;
  TakeWords(options, words, argumentCount, arguments);
  return invocation;
}

}  // namespace quorl::cli
