// What the target directory and the disk check of a receiver ask. A target need not exist yet: what counts is the
// volume that will hold it, which need not be the one of its drive letter: a volume can be mounted in a directory.
#include "platform/win32/shell.h"

#include <array>

#include "platform/win32/system.h"
#include "platform/win32/text.h"

#include <shlobj.h>

namespace quorl {

namespace {

constexpr size_t LONGEST_PATH = 32768;
constexpr DWORD LONGEST_NAME = 260;

using ExtendedQuery = BOOL(WINAPI*)(LPCWSTR, PULARGE_INTEGER, PULARGE_INTEGER, PULARGE_INTEGER);

ExtendedQuery FindExtendedQuery() {
  const HMODULE kernel = GetModuleHandleA("kernel32.dll");
  return reinterpret_cast<ExtendedQuery>(
      reinterpret_cast<void*>(kernel ? GetProcAddress(kernel, "GetDiskFreeSpaceExW") : nullptr));
}

/// The root of the volume that holds the path, with its last backslash.
std::optional<std::wstring> VolumeOf(const std::optional<std::wstring>& path) {
  std::wstring root(LONGEST_PATH, L'\0');
  if (!path || !GetVolumePathNameW(path->c_str(), root.data(), LONGEST_PATH)) return std::nullopt;
  root.resize(root.find(L'\0'));
  return root;
}

}  // namespace

bool Win32Shell::IsNtPlatform() {
  OSVERSIONINFOA about{};
  about.dwOSVersionInfoSize = sizeof about;
  return GetVersionExA(&about) && about.dwPlatformId == VER_PLATFORM_WIN32_NT;
}

SpecialFolder Win32Shell::LookUpFolder(uint32_t folder) {
  LPITEMIDLIST items = nullptr;
  if (FAILED(SHGetSpecialFolderLocation(nullptr, static_cast<int>(folder), &items))) return {};
  std::array<wchar_t, MAX_PATH> path{};
  const bool hasPath = SHGetPathFromIDListW(items, path.data());
  ILFree(items);
  return {true, hasPath ? std::optional(ToNarrow(path.data())) : std::nullopt};
}

std::optional<std::string> Win32Shell::AccountName() {
  std::array<char, LONGEST_NAME> name{};
  DWORD size = LONGEST_NAME;
  if (!GetUserNameA(name.data(), &size)) return std::nullopt;
  return std::string(name.data());
}

std::optional<std::string> Win32Shell::ComputerName() {
  std::array<char, MAX_COMPUTERNAME_LENGTH + 1> name{};
  DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
  if (!GetComputerNameA(name.data(), &size)) return std::nullopt;
  return std::string(name.data());
}

std::optional<std::string> Win32Shell::ReadLogonValue(const std::string& key, const std::string& name) {
  // A 32-bit process is else shown a copy of these settings in which nobody is logged on.
  constexpr REGSAM ACCESS = KEY_READ | KEY_WOW64_64KEY;
  HKEY opened = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, key.c_str(), 0, ACCESS, &opened) != ERROR_SUCCESS) return std::nullopt;
  std::array<char, LONGEST_NAME + 1> value{};  // One byte more: the system does not promise the last NUL.
  DWORD size = LONGEST_NAME;
  const LSTATUS result =
      RegQueryValueExA(opened, name.c_str(), nullptr, nullptr, reinterpret_cast<BYTE*>(value.data()), &size);
  RegCloseKey(opened);
  if (result != ERROR_SUCCESS) return std::nullopt;
  return std::string(value.data());
}

std::string Win32Shell::ThroughWideText(std::string text) {
  return ThroughWide(text);
}

DriveType Win32Shell::DriveTypeOf(const std::string& directory) {
  const auto volume = VolumeOf(drives.ResolveDisk(directory));
  return volume ? static_cast<DriveType>(GetDriveTypeW(volume->c_str())) : DriveType::NoRoot;
}

bool Win32Shell::HasExtendedFreeSpaceQuery() {
  return FindExtendedQuery() != nullptr;
}

std::optional<uint64_t> Win32Shell::FreeBytes(const std::string& directory) {
  const ExtendedQuery query = FindExtendedQuery();
  const auto volume = VolumeOf(drives.ResolveDisk(directory));
  ULARGE_INTEGER available{}, all{}, unused{};
  if (!query || !volume || !query(volume->c_str(), &available, &all, &unused)) return std::nullopt;
  return available.QuadPart;
}

std::optional<FreeClusters> Win32Shell::QueryFreeClusters(const std::string& directory) {
  const auto volume = VolumeOf(drives.ResolveDisk(directory));
  DWORD sectors = 0, bytes = 0, unused = 0, all = 0;
  if (!volume || !GetDiskFreeSpaceW(volume->c_str(), &sectors, &bytes, &unused, &all)) return std::nullopt;
  return FreeClusters{unused, bytes, sectors};
}

}  // namespace quorl
