#include "cli/system/win32/paths.h"

#include <algorithm>

#include "cli/system/path.h"
#include "platform/win32/text.h"

namespace quorl::cli {

std::optional<std::wstring> LongForm(const std::string& path) {
  const auto wide = ToWide(path);
  if (!wide || wide->empty() || wide->find(L'\0') != std::wstring::npos) return std::nullopt;
  std::wstring full(GetFullPathNameW(wide->c_str(), 0, nullptr, nullptr), L'\0');
  full.resize(GetFullPathNameW(wide->c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
  if (full.starts_with(L"\\\\?\\") || full.starts_with(L"\\\\.\\")) return full;
  return full.starts_with(L"\\\\") ? L"\\\\?\\UNC" + full.substr(1) : L"\\\\?\\" + full;
}

std::wstring PathOf(HANDLE handle) {
  std::wstring path(GetFinalPathNameByHandleW(handle, nullptr, 0, FILE_NAME_NORMALIZED), L'\0');
  path.resize(GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), FILE_NAME_NORMALIZED));
  return path;
}

std::vector<std::string> PathsOf(const std::string& word) {
  const size_t leaf = word.find_last_of("/\\:") + 1;
  if (word.find_first_of("*?", leaf) == std::string::npos) return {word};
  const auto pattern = ToWide(word);
  if (!pattern) return {word};
  std::vector<std::string> paths;
  WIN32_FIND_DATAW found{};
  const HANDLE search = FindFirstFileExW(pattern->c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
  if (search == INVALID_HANDLE_VALUE) return {word};
  do {
    const std::string name = ToNarrow(found.cFileName);
    if (name != "." && name != "..") paths.push_back(word.substr(0, leaf) + name);
  } while (FindNextFileW(search, &found));
  FindClose(search);
  std::sort(paths.begin(), paths.end());
  return paths.empty() ? std::vector{word} : paths;
}

}  // namespace quorl::cli
