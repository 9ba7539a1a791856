// What may be opened because somebody in the network suggests it. What a desktop does with a file depends on its name,
// so names are looked at as well as modes.
#include "cli/transfer/suggestion.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace quorl::cli {
namespace {

constexpr std::array<std::string_view, 27> PROGRAM_SUFFIXES{
    ".appimage", ".bash", ".bat", ".cmd", ".com", ".csh", ".deb", ".desktop", ".exe",
    ".hta",      ".jar",  ".jse", ".js",  ".lnk", ".msi", ".pl",  ".ps1",     ".py",
    ".rb",       ".rpm",  ".run", ".scr", ".sh",  ".vbs", ".wsf", ".xpi",     ".zsh"};

bool IsNamedLikeAProgram(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return std::any_of(PROGRAM_SUFFIXES.begin(), PROGRAM_SUFFIXES.end(),
                     [&name](std::string_view suffix) { return name.ends_with(suffix); });
}

}  // namespace

std::string WhyNotOpened(const Directory& target, const std::string& name) {
  const OpenedFile file = target.Read(name);
  if (!file) return file.Why().text;
  const auto stamp = file.Stamp();
  return !stamp || stamp->isProgram || IsNamedLikeAProgram(name) ? "it is a program" : "";
}

}  // namespace quorl::cli
