#include "platform/win32/drive_letters.h"

#include <algorithm>

#include "platform/relative_path.h"
#include "platform/win32/ordinary_name.h"
#include "platform/win32/system.h"
#include "platform/win32/text.h"

namespace quorl {

namespace {

constexpr std::wstring_view LONG_FORM = L"\\\\?\\";

std::optional<size_t> IndexOf(char letter) {
  if (letter >= 'A' && letter <= 'Z') return letter - 'A';
  if (letter >= 'a' && letter <= 'z') return letter - 'a';
  return std::nullopt;
}

bool HasDrive(const std::string& path) {
  return path.size() >= 2 && path[1] == ':' && IndexOf(path[0]);
}

bool IsOnNetwork(const std::string& path) {
  return path.starts_with("\\\\") || path.starts_with("//");
}

std::string WithBackslashes(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

/// "C:" or nothing: the current directory may be on the network.
std::string CurrentDrive() {
  std::wstring path(GetCurrentDirectoryW(0, nullptr), L'\0');
  path.resize(GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data()));
  const std::string drive = ToNarrow(std::wstring_view(path).substr(0, 2));
  return HasDrive(drive) ? drive : std::string();
}

/// The full path of a directory on one of the machine's drives, without a last backslash but for "C:\".
std::optional<std::wstring> FullPathOfDirectory(const std::string& path) {
  const auto wide = ToWide(path);
  if (!wide || wide->empty()) return std::nullopt;
  std::wstring full(GetFullPathNameW(wide->c_str(), 0, nullptr, nullptr), L'\0');
  full.resize(GetFullPathNameW(wide->c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
  if (full.starts_with(LONG_FORM)) full.erase(0, LONG_FORM.size());
  while (full.size() > 3 && full.ends_with(L'\\')) full.pop_back();
  const DWORD attributes = GetFileAttributesW((std::wstring(LONG_FORM) + full).c_str());
  const bool isDirectory = attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
  if (!isDirectory || full.size() < 3 || full[1] != L':') return std::nullopt;
  return full;
}

}  // namespace

bool DriveLetters::Map(char letter, const std::string& directory) {
  const auto index = IndexOf(letter);
  auto full = FullPathOfDirectory(directory);
  if (!index || !full) return false;
  if (full->ends_with(L'\\')) full->pop_back();
  const std::lock_guard lock(mutex);
  mapped[*index] = std::wstring(LONG_FORM) + *full;
  return true;
}

std::optional<std::string> DriveLetters::DrivePathOf(const std::string& localDirectory) {
  const auto full = FullPathOfDirectory(localDirectory);
  const auto index = full ? IndexOf(static_cast<char>((*full)[0])) : std::nullopt;
  if (!index) return std::nullopt;
  const std::lock_guard lock(mutex);
  const std::string own = ToNarrow(*full);
  if (mapped[*index].empty() && ToWide(own) == full) return own;
  const DWORD used = GetLogicalDrives();
  for (size_t free = COUNT; free-- > 0;) {
    if (!mapped[free].empty() || (used & (1u << free))) continue;
    mapped[free] = std::wstring(LONG_FORM) + (full->ends_with(L'\\') ? full->substr(0, 2) : *full);
    return std::string(1, static_cast<char>('A' + free)) + ":\\";
  }
  return std::nullopt;
}

std::wstring DriveLetters::RootOf(size_t index) const {
  const std::lock_guard lock(mutex);
  if (!mapped[index].empty()) return mapped[index];
  return std::wstring(LONG_FORM) + static_cast<wchar_t>(L'A' + index) + L':';
}

std::optional<std::wstring> DriveLetters::Resolve(const std::string& drivePath) const {
  if (!HasDrive(drivePath)) return std::nullopt;
  const auto below = RelativePath::FromText(WithBackslashes(drivePath.substr(2)));
  if (!below) return std::nullopt;
  std::wstring path = RootOf(*IndexOf(drivePath[0]));
  for (const std::string& component : below->Components()) {
    const auto wide = ToWide(component);
    if (!wide || !IsOrdinaryName(*wide)) return std::nullopt;
    path += L'\\' + *wide;
  }
  return below->IsEmpty() ? path + L'\\' : path;
}

std::optional<std::wstring> DriveLetters::ResolveTarget(const std::string& drivePath) const {
  if (IsOnNetwork(drivePath)) return std::nullopt;
  return Resolve(HasDrive(drivePath) ? drivePath : CurrentDrive() + "\\" + drivePath);
}

std::optional<std::wstring> DriveLetters::ResolveDisk(const std::string& drivePath) const {
  const auto path = ResolveTarget(drivePath);
  if (path || IsOnNetwork(drivePath)) return path;
  return Resolve(HasDrive(drivePath) ? drivePath.substr(0, 2) : CurrentDrive());
}

}  // namespace quorl
