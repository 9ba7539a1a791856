// The command line. The only file that knows the parser: it compiles for ten seconds, and the rest of the command is
// tested with plain structures.
#include "cli/options/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <string_view>

#include "cli/options/help.h"
#include "cli/options/table.h"
#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/system/path.h"

namespace quorl::cli {
namespace {

Failure WrongUse(const std::string& what, const std::string& why, std::vector<std::string> next) {
  return {Exit::Usage, what, why, std::move(next)};
}

/// `source`: where the value stands, an option or a variable of the environment.
void Set(const OptionRow& row, Options& options, const std::string& source, const std::string& value) {
  try {
    row.set(options, value);
  } catch (const WrongValue& wrong) {
    throw WrongUse(source + " cannot be taken", Escape(wrong.why), {});
  }
}

void AddOption(CLI::App& command, const OptionRow& row, Options& options) {
  std::string names = *row.shortName == '\0' ? row.name : std::string(row.shortName) + "," + row.name;
  if (*row.argument == '\0') {
    auto setFlag = [&row, &options](int64_t count) {
      if (count > 0) Set(row, options, row.name, std::to_string(count));
    };
    command.add_flag_function(names, setFlag);
  } else {
    auto set = [&row, &options](const std::string& text) { Set(row, options, row.name, text); };
    CLI::Option* option = command.add_option_function<std::string>(names, set);
    // Called with each value as it comes.
    if (row.repeats) option->trigger_on_parse();
  }
}

void AddCommand(CLI::App& app, const CommandRow& row, Options& options, std::vector<std::string>& words) {
  CLI::App* command = app.add_subcommand(row.name);
  // What is left over is judged here, where a near name can be offered.
  command->allow_extras();
  if (*row.arguments != '\0') command->add_option(row.arguments, words);
  for (const OptionRow& option : OptionRows()) {
    if ((option.commands & static_cast<unsigned>(row.verb)) != 0) AddOption(*command, option, options);
  }
}

/// How often a flag is meant to be given by a variable: 1, 2, yes, on, true; or not at all.
std::string FlagCount(const std::string& variable, const std::string& value) {
  for (const char* yes : {"yes", "on", "true"}) {
    if (value == yes) return "1";
  }
  for (const char* no : {"no", "off", "false"}) {
    if (value == no) return "0";
  }
  uint32_t count = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), count);
  if (error == std::errc{} && end == value.data() + value.size()) return value;
  throw WrongUse(variable + " cannot be taken", Escape("\"" + value + "\" is neither 1 nor 0"), {});
}

/// Options that are not given come from the environment, when that has them.
void TakeEnvironment(const CLI::App& command, const CommandRow& row, Options& options) {
  for (const OptionRow& option : OptionRows()) {
    if ((option.commands & static_cast<unsigned>(row.verb)) == 0 || command.count(option.name) != 0) continue;
    const std::string name = EnvironmentName(option);
    const char* value = std::getenv(name.c_str());
    if (value == nullptr || *value == '\0') continue;
    const bool isFlag = *option.argument == '\0';
    const std::string text = isFlag ? FlagCount(name, value) : value;
    if (!isFlag || text != "0") Set(option, options, name, text);
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

/// A shell that puts the names of files in the place of "*" may put one there that is an option.
void RejectOptionsThatAreFiles(const std::vector<std::string>& words) {
  std::error_code error;
  for (const std::string& word : words) {
    const bool isOption = word.size() > 1 && word.starts_with('-');
    if (!isOption || !std::filesystem::exists(std::filesystem::symlink_status(word, error))) continue;
    throw WrongUse("\"" + Escape(word) + "\" may be an option or the file of that name here", "",
                   {"The file, and all others behind it: -- before them, as in \"quorl send -- *\".",
                    "The option: in another way, such as -y for --yes, or from another directory."});
  }
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

void TakeWords(const CLI::App& command, Options& options, const std::vector<std::string>& words, int argumentCount,
               const char* const* arguments) {
  if (options.verb == Verb::Send) {
    for (const std::string& word : words) {
      const std::vector<std::string> paths = PathsOf(word);
      options.send.paths.insert(options.send.paths.end(), paths.begin(), paths.end());
    }
    options.send.again = AgainText(std::vector<std::string>(arguments + 1, arguments + argumentCount));
    if (!words.empty()) return;
    throw WrongUse("nothing to send", "no file or directory is named",
                   {"quorl send images/ setup.msi           shows who listens, and asks before it starts",
                    "quorl send images/ --yes --rate 400M   starts at once, at 400 Mbit/s",
                    "\"quorl list\" shows who listens.", "\"quorl send --help\" tells the rest."});
  }
  if (words.empty()) return;
  // A directory that is named goes before one in the environment, but not silently before --to.
  if (words.size() > 1 || command.count("--to") != 0)
    throw WrongUse("more than one directory is named", "everything goes to one", {});
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
  // Words behind "--" are no options, whatever they look like.
  const char* const* const all = arguments + argumentCount;
  const char* const* const mark =
      std::find_if(arguments + 1, all, [](const char* word) { return std::string_view(word) == "--"; });
  Invocation invocation;
  Options& options = invocation.options;
  CLI::App app("", "quorl");
  app.set_version_flag("--version", "");
  app.allow_extras();
  // A path may begin with a slash everywhere.
  app.allow_windows_style_options(false);
  std::vector<std::string> words;
  for (const CommandRow& row : CommandRows()) AddCommand(app, row, options, words);
  try {
    app.parse(static_cast<int>(mark - arguments), arguments);
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
  options.verb = row->verb;
  if (options.verb == Verb::Send) RejectOptionsThatAreFiles({arguments + 1, mark});
  if (mark != all) words.insert(words.end(), mark + 1, all);
  const CLI::App& command = *app.get_subcommands().front();
  TakeEnvironment(command, *row, options);
  TakeWords(command, options, words, argumentCount, arguments);
  return invocation;
}

}  // namespace quorl::cli
