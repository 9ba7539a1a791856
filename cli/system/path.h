#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quorl::cli {

/// The path that a text names. The command's texts are UTF-8 on every system; the language itself would take them for
/// something else on one whose own names are wide.
inline std::filesystem::path PathFrom(std::string_view text) {
  return std::u8string_view(reinterpret_cast<const char8_t*>(text.data()), text.size());
}

/// The paths that a word of the command line stands for. Where no shell puts names in the place of "*" and "?", those
/// of its last component do it here: all that fit, by name, or the word itself when none does.
std::vector<std::string> PathsOf(const std::string& word);

}  // namespace quorl::cli
