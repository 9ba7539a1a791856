// What may be opened because somebody in the network suggests it. What a desktop does with a file depends on its name,
// so names are looked at as well as modes.
#include "cli/receive_open.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "cli/staging_files.h"

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

std::string WhyNotOpened(int target, const std::string& name) {
  const FileHandle file = OpenFileBeneath(target, name);
  struct stat status {};
  if (!file || fstat(file.Get(), &status) != 0) return WhyNotBeneath(errno);
  if ((status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0 || IsNamedLikeAProgram(name)) return "it is a program";
  return "";
}

}  // namespace quorl::cli
