// Open files by the handles of the library's ground floor.
#include "cli/system/win32/open_file.h"

#include <aclapi.h>
#include <shlwapi.h>

#include <algorithm>
#include <array>

#include "cli/system/win32/error.h"
#include "cli/system/win32/paths.h"

namespace quorl::cli {
namespace {

constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// The system counts in steps of 100 ns since 1601.
constexpr int64_t STEPS_A_SECOND = 10'000'000;
constexpr int64_t SECONDS_TO_1970 = 11'644'473'600;

FileTime TimeOf(LARGE_INTEGER steps) {
  return {steps.QuadPart / STEPS_A_SECOND - SECONDS_TO_1970,
          static_cast<uint32_t>(steps.QuadPart % STEPS_A_SECOND * 100)};
}

LARGE_INTEGER StepsOf(FileTime time) {
  LARGE_INTEGER steps{};
  steps.QuadPart = (time.seconds + SECONDS_TO_1970) * STEPS_A_SECOND + time.nanoseconds / 100;
  return steps;
}

/// Whether this machine runs a file of that name, or something that it names, when somebody opens it.
bool IsProgram(const std::wstring& path) {
  return AssocIsDangerous(PathFindExtensionW(path.c_str())) != FALSE;
}

/// Whether an account or a group is one that every user of this machine is in.
bool IsEveryone(PSID account) {
  constexpr std::array EVERYONE{WinWorldSid, WinAuthenticatedUserSid, WinBuiltinUsersSid};
  return std::any_of(EVERYONE.begin(), EVERYONE.end(), [account](auto kind) { return IsWellKnownSid(account, kind); });
}

/// An entry of a list of those that may use a file.
bool LetsEveryoneRead(ACL& list, DWORD index) {
  void* entry = nullptr;
  if (!GetAce(&list, index, &entry) || static_cast<const ACE_HEADER*>(entry)->AceType != ACCESS_ALLOWED_ACE_TYPE)
    return false;
  auto& allowed = *static_cast<ACCESS_ALLOWED_ACE*>(entry);
  return (allowed.Mask & FILE_READ_DATA) != 0 && IsEveryone(&allowed.SidStart);
}

}  // namespace

OpenedFile OpenedFile::Open(const std::string& path) {
  OpenedFile opened;
  const auto place = LongForm(path);
  // Else a directory could not be told from a file that may not be read.
  constexpr DWORD FLAGS = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_SEQUENTIAL_SCAN;
  Handle handle;
  if (place)
    handle = Handle(CreateFileW(place->c_str(), GENERIC_READ, SHARE_ALL, nullptr, OPEN_EXISTING, FLAGS, nullptr));
  BY_HANDLE_FILE_INFORMATION about{};
  if (!handle) {
    opened.why = ErrorOf(place ? GetLastError() : ERROR_INVALID_NAME);
  } else if (GetFileType(handle.Get()) != FILE_TYPE_DISK || !GetFileInformationByHandle(handle.Get(), &about) ||
             (about.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
    opened.why = {SystemError::Kind::NotAFile, ERROR_BAD_FILE_TYPE, "it is not a regular file"};
  } else {
    opened.state = std::make_shared<State>(std::move(handle));
  }
  return opened;
}

std::optional<size_t> OpenedFile::Read(std::span<char> into) {
  const auto count = state->file.ReadAt(state->position, {reinterpret_cast<uint8_t*>(into.data()), into.size()});
  if (!count) why = LastError();
  state->position += count.value_or(0);
  return count;
}

void OpenedFile::SkipTo(uint64_t position) {
  state->position = position;
}

std::optional<FileStamp> OpenedFile::Stamp() const {
  FILE_BASIC_INFO about{};
  LARGE_INTEGER size{};
  if (!GetFileInformationByHandleEx(state->handle, FileBasicInfo, &about, sizeof about) ||
      !GetFileSizeEx(state->handle, &size)) {
    return std::nullopt;
  }
  // What may be run is a matter of names here; no mark on the file says so to other systems.
  return FileStamp{static_cast<uint64_t>(size.QuadPart),
                   TimeOf(about.LastWriteTime),
                   TimeOf(about.ChangeTime),
                   false,
                   IsProgram(PathOf(state->handle)),
                   std::nullopt};
}

SystemError OpenedFile::Describe(FileTime written, bool, std::optional<uint16_t>) const {
  // What is 0 stays as it is.
  FILE_BASIC_INFO about{};
  about.LastWriteTime = StepsOf(written);
  return SetFileInformationByHandle(state->handle, FileBasicInfo, &about, sizeof about) ? SystemError() : LastError();
}

SystemError OpenedFile::Sync() const {
  // Only who may write may have it written.
  const Handle writable(ReOpenFile(state->handle, GENERIC_WRITE, SHARE_ALL, 0));
  return writable && FlushFileBuffers(writable.Get()) ? SystemError() : LastError();
}

// Those of this system want a right that accounts do not have, and another text.
bool HasLinks() {
  return false;
}

std::optional<std::string> LinkAt(const std::string&) {
  return std::nullopt;
}

bool IsReadByEveryone(const std::string& path) {
  const auto place = LongForm(path);
  ACL* list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!place || GetNamedSecurityInfoW(place->c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                      &list, nullptr, &descriptor) != ERROR_SUCCESS) {
    return false;
  }
  // Where there is no list everybody may.
  bool everyone = list == nullptr;
  for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) everyone = everyone || LetsEveryoneRead(*list, i);
  LocalFree(descriptor);
  return everyone;
}

// Who owns a file has a name for that which is the same in every language of the system.
std::string CommandToHide(const std::string& path) {
  return "icacls \"" + path + "\" /inheritance:r /grant:r *S-1-3-4:F";
}

struct AppendedFile::State {
  Handle handle;
};

AppendedFile AppendedFile::Open(const std::string& path) {
  AppendedFile appended;
  const auto place = LongForm(path);
  Handle handle;
  if (place) {
    handle = Handle(
        CreateFileW(place->c_str(), FILE_APPEND_DATA, SHARE_ALL, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  }
  if (handle) {
    appended.state = std::make_shared<State>(State{std::move(handle)});
  } else {
    appended.why = ErrorOf(place ? GetLastError() : ERROR_INVALID_NAME);
  }
  return appended;
}

void AppendedFile::Write(std::string_view text) const {
  DWORD written = 0;
  WriteFile(state->handle.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

}  // namespace quorl::cli
