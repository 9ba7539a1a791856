// Where a transfer lands on this receiver.
//
// A receiver may run as a service, so the shell's answer to "the desktop" may be the desktop of an account that nobody
// sits at. The path is therefore rewritten to the user whom the machine's logon settings name. Called by the receive
// loop when a transfer is announced.

#include "files/target_dir.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace quorl {

namespace {

constexpr uint32_t DESKTOP = 0;
constexpr uint32_t COMMON_DESKTOP = 25;
constexpr size_t LONGEST_LOGON_VALUE = 260;

uint32_t ReplaceAll(std::string& text, std::string_view what, std::string_view with) {
  uint32_t count = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
    ++count;
  }
  return count;
}

char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return ToLower(x) == ToLower(y); });
}

std::optional<std::string> ReadRegString(const Machine& machine, const std::string& key, const std::string& name) {
  std::optional<std::string> value = machine.shell.ReadLogonValue(key, name);
  if (value && value->size() > LONGEST_LOGON_VALUE) value.reset();
  return value;
}

/// The profile name of the user who is logged on: "user", or "user.domain" when the domain is not this computer.
std::optional<std::string> GetLogonUser(const Machine& machine) {
  if (!machine.shell.IsNtPlatform()) return ReadRegString(machine, "Network\\Logon", "username");
  const auto readEither = [&](const char* first, const char* second) {
    const std::string key = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\WinLogon";
    const std::optional<std::string> value = ReadRegString(machine, key, first);
    return value ? value : ReadRegString(machine, key, second);
  };
  const std::optional<std::string> user = readEither("AltDefaultUserName", "DefaultUserName");
  if (!user) return std::nullopt;
  const std::optional<std::string> domain = readEither("AltDefaultDomainName", "DefaultDomainName");
  if (!domain) return std::nullopt;
  const std::string computer = machine.shell.ComputerName().value_or("");
  return EqualIgnoringCase(*domain, computer) ? *user : *user + "." + *domain;
}

/// Puts the logged-on user in the place of the account that runs the process. Returns the number of replacements.
uint32_t FixProfileUser(const Machine& machine, std::string& path) {
  if (path.empty()) return 0;
  const std::string me = machine.shell.AccountName().value_or("");
  const std::string logged = GetLogonUser(machine).value_or("");
  if (me.empty() || logged.empty()) return 0;
  const std::string profileNames[] = {"Default User", "LocalService", "NetworkService",
                                      me + ".WINXP",  me + ".WINNT",  me};
  for (const std::string& profileName : profileNames) {
    if (const uint32_t count = ReplaceAll(path, profileName, logged); count > 0) return count;
  }
  return 0;
}

/// The desktop of the process's account, guessed from the one common to all users. Empty when that is not known.
std::string GuessDesktop(const Machine& machine) {
  std::string desktop = machine.shell.LookUpFolder(COMMON_DESKTOP).path.value_or("");
  if (const auto account = machine.shell.AccountName()) ReplaceAll(desktop, "All Users", *account);
  return desktop;
}

}  // namespace

std::string ResolveTargetDir(const Machine& machine, uint32_t folder, const std::string& path,
                             const std::string& previous) {
  if (folder == LITERAL_TARGET) return path;
  const SpecialFolder found = machine.shell.LookUpFolder(folder);
  if (!found.known) return previous;
  std::string candidate = found.path.value_or("");
  if (!found.path && folder == DESKTOP) candidate = GuessDesktop(machine);
  FixProfileUser(machine, candidate);
  return candidate;
}

}  // namespace quorl
