// The command line that repeats a transfer for those that failed, as a shell takes it.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "cli/options/options.h"
#include "cli/options/table.h"
#include "cli/show/escape.h"

namespace quorl::cli {
namespace {

constexpr std::array<std::string_view, 4> NOT_REPEATED = {"--only", "--wait-for", "--retry", "--yes"};

const OptionRow* RowOf(std::string_view word) {
  auto rows = OptionRows();
  auto row = std::find_if(rows.begin(), rows.end(),
                          [word](const OptionRow& one) { return word == one.name || word == one.shortName; });
  return word.starts_with('-') && row != rows.end() ? &*row : nullptr;
}

std::string Quoted(const std::string& word) {
  constexpr std::string_view PLAIN = "-+=:,./@%_";
  auto isPlain = [PLAIN](char letter) {
    bool isAlphanumeric = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
                          (letter >= '0' && letter <= '9') || static_cast<unsigned char>(letter) >= 0x80;
    return isAlphanumeric || PLAIN.find(letter) != std::string_view::npos;
  };
  bool shows = Escape(word) == word;
  if (shows && !word.empty() && std::all_of(word.begin(), word.end(), isPlain)) return word;
  std::string quoted;
  for (char letter : word) {
    if (letter == '\'') quoted += shows ? "'\\'" : "\\";
    if (letter == '\\' && !shows) quoted += '\\';
    quoted += letter;
  }
  // What would steer a terminal is written out, in the form that bash and zsh read.
  return fmt::format("{}'{}'", shows ? "" : "$", Escape(quoted));
}

}  // namespace

std::string AgainText(const std::vector<std::string>& words) {
  std::string text = "quorl";
  bool onlyPaths = false;
  for (size_t i = 0; i < words.size(); ++i) {
    // Options are going to be added at the end, so "--" cannot stand before what it is for.
    if (onlyPaths) {
      text += " " + Quoted(words[i].starts_with('-') ? "./" + words[i] : words[i]);
      continue;
    }
    onlyPaths = words[i] == "--";
    if (onlyPaths) continue;
    std::string_view name = std::string_view(words[i]).substr(0, words[i].find('='));
    const OptionRow* row = RowOf(name);
    bool leaveOut =
        row != nullptr && std::find(NOT_REPEATED.begin(), NOT_REPEATED.end(), row->name) != NOT_REPEATED.end();
    bool hasValue = row != nullptr && *row->argument != '\0' && name.size() == words[i].size();
    if (leaveOut) {
      i += hasValue ? 1 : 0;
      continue;
    }
    text += " " + Quoted(words[i]);
  }
  return text;
}

}  // namespace quorl::cli
