// The desktop and its like: where the desktop environment's settings put them (user-dirs.dirs, a file of lines
// XDG_DESKTOP_DIR="$HOME/Desktop"), else the usual names below the home directory.
#include "platform/posix/user_folders.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <vector>

namespace quorl {

namespace {

struct Folder {
  uint32_t identifier;
  const char* setting;
  const char* usualName;
};

constexpr uint32_t HOME_FOLDER = 40;

constexpr std::array FOLDERS{
    Folder{0, "XDG_DESKTOP_DIR", "Desktop"},     Folder{16, "XDG_DESKTOP_DIR", "Desktop"},
    Folder{5, "XDG_DOCUMENTS_DIR", "Documents"}, Folder{13, "XDG_MUSIC_DIR", "Music"},
    Folder{14, "XDG_VIDEOS_DIR", "Videos"},      Folder{39, "XDG_PICTURES_DIR", "Pictures"},
};

const Folder* FindFolder(uint32_t identifier) {
  const auto found = std::find_if(FOLDERS.begin(), FOLDERS.end(),
                                  [&](const Folder& folder) { return folder.identifier == identifier; });
  return found == FOLDERS.end() ? nullptr : &*found;
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::string Home() {
  std::string home = Environment("HOME");
  if (home.empty()) home = CurrentAccount().value_or(Account{}).home;
  return home;
}

/// The text between the quotes that `text` begins with; a backslash makes the next character an ordinary one.
std::optional<std::string> Unquoted(std::string_view text) {
  if (!text.starts_with('"')) return std::nullopt;
  std::string value;
  for (size_t i = 1; i < text.size() && text[i] != '"'; ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    value += text[i];
  }
  return value;
}

/// The value of a line `setting="..."`: an absolute path, or one that begins with $HOME.
std::optional<std::string> ValueOf(std::string_view line, std::string_view setting, const std::string& home) {
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  if (!line.starts_with(setting)) return std::nullopt;
  line.remove_prefix(setting.size());
  if (!line.starts_with('=')) return std::nullopt;
  const auto value = Unquoted(line.substr(1));
  if (!value) return std::nullopt;
  constexpr std::string_view HOME_MARK = "$HOME";
  if (value->starts_with(HOME_MARK)) return home + value->substr(HOME_MARK.size());
  return value->starts_with('/') ? value : std::nullopt;
}

std::optional<std::string> ConfiguredFolder(const char* setting, const std::string& home) {
  std::string directory = Environment("XDG_CONFIG_HOME");
  if (!directory.starts_with('/')) directory = home + "/.config";
  std::ifstream settings(directory + "/user-dirs.dirs");
  std::optional<std::string> last;
  for (std::string line; std::getline(settings, line);)
    if (auto value = ValueOf(line, setting, home)) last = std::move(value);
  return last;
}

}  // namespace

std::optional<Account> CurrentAccount() {
  constexpr size_t MAX_ENTRY = 65536;
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> text(MAX_ENTRY);
  if (getpwuid_r(geteuid(), &entry, text.data(), text.size(), &found) != 0 || !found) return std::nullopt;
  return Account{found->pw_name, found->pw_dir};
}

bool IsKnownFolder(uint32_t folder) {
  return folder == HOME_FOLDER || FindFolder(folder);
}

std::optional<std::string> UserFolder(uint32_t identifier) {
  const std::string home = Home();
  if (!home.starts_with('/')) return std::nullopt;
  const Folder* folder = FindFolder(identifier);
  if (!folder) return home;
  const auto configured = ConfiguredFolder(folder->setting, home);
  return configured ? configured : home + "/" + folder->usualName;
}

}  // namespace quorl
