// Directories by the handles of the library's ground floor. A name is resolved beneath an open directory component by
// component, and no link on the way is followed (platform/win32/beneath.h).
#include "platform/win32/system.h"

#include <aclapi.h>
#include <winternl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>

#include "cli/system/win32/directory_lock.h"
#include "cli/system/win32/error.h"
#include "cli/system/win32/open_file.h"
#include "cli/system/win32/paths.h"
#include "platform/win32/beneath.h"
#include "platform/win32/ordinary_name.h"
#include "platform/win32/text.h"

namespace quorl::cli {
namespace {

/// "a/b" as components; nothing for a name that could lead elsewhere, which has no business here.
std::optional<RelativePath> Components(std::string_view name) {
  std::string text(name);
  if (text.find('\\') != std::string::npos) return std::nullopt;
  std::replace(text.begin(), text.end(), '/', '\\');
  return RelativePath::FromText(text);
}

std::optional<std::vector<std::string>> NamesIn(HANDLE directory) {
  alignas(FILE_ID_BOTH_DIR_INFO) std::array<char, 32768> entries{};
  std::vector<std::string> names;
  auto query = FileIdBothDirectoryRestartInfo;
  while (GetFileInformationByHandleEx(directory, query, entries.data(), entries.size())) {
    query = FileIdBothDirectoryInfo;
    const FILE_ID_BOTH_DIR_INFO* entry = nullptr;
    for (size_t at = 0; entry == nullptr || entry->NextEntryOffset != 0;) {
      at += entry != nullptr ? entry->NextEntryOffset : 0;
      entry = reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(entries.data() + at);
      const std::wstring_view name(entry->FileName, entry->FileNameLength / sizeof(wchar_t));
      if (name != L"." && name != L"..") names.push_back(ToNarrow(name));
    }
  }
  if (GetLastError() != ERROR_NO_MORE_FILES) return std::nullopt;
  return names;
}

bool IsWalkable(DWORD attributes) {
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) && !(attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

bool RemoveIn(HANDLE parent, const std::string& name) {
  const OpenedHandle thing = OpenEntry(parent, name, DELETE | FILE_WRITE_ATTRIBUTES | FILE_LIST_DIRECTORY);
  if (!thing.handle) return thing.error == ERROR_FILE_NOT_FOUND;
  FILE_BASIC_INFO about{};
  if (!GetFileInformationByHandleEx(thing.handle.Get(), FileBasicInfo, &about, sizeof about)) return false;
  const auto names = IsWalkable(about.FileAttributes) ? NamesIn(thing.handle.Get()) : std::vector<std::string>();
  bool emptied = names.has_value();
  for (const std::string& below : names.value_or(std::vector<std::string>()))
    emptied = RemoveIn(thing.handle.Get(), below) && emptied;
  if (about.FileAttributes & FILE_ATTRIBUTE_READONLY) {
    about.FileAttributes = FILE_ATTRIBUTE_NORMAL;
    SetFileInformationByHandle(thing.handle.Get(), FileBasicInfo, &about, sizeof about);
  }
  FILE_DISPOSITION_INFO going{TRUE};
  return emptied && SetFileInformationByHandle(thing.handle.Get(), FileDispositionInfo, &going, sizeof going);
}

/// Whether it belongs to the account of this process, or to the one that owns what the process makes.
bool IsOurs(HANDLE thing) {
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetSecurityInfo(thing, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                      &descriptor) != ERROR_SUCCESS) {
    return false;
  }
  HANDLE token = nullptr;
  OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token);
  const Handle ownToken(token);
  alignas(TOKEN_USER) std::array<char, 512> user{};
  alignas(TOKEN_OWNER) std::array<char, 512> maker{};
  DWORD length = 0;
  const bool known = GetTokenInformation(token, TokenUser, user.data(), user.size(), &length) &&
                     GetTokenInformation(token, TokenOwner, maker.data(), maker.size(), &length);
  const bool ours = known && (EqualSid(owner, reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid) ||
                              EqualSid(owner, reinterpret_cast<const TOKEN_OWNER*>(maker.data())->Owner));
  LocalFree(descriptor);
  return ours;
}

/// Gives an open file another name in `to`, in one step.
DWORD Rename(HANDLE file, HANDLE to, const std::wstring& name, bool mayReplace) {
  constexpr auto RENAME = static_cast<FILE_INFORMATION_CLASS>(10);
  std::vector<char> buffer(sizeof(FILE_RENAME_INFO) + name.size() * sizeof(wchar_t));
  FILE_RENAME_INFO rename{};
  rename.ReplaceIfExists = mayReplace;
  rename.RootDirectory = to;
  rename.FileNameLength = static_cast<DWORD>(name.size() * sizeof(wchar_t));
  std::memcpy(buffer.data(), &rename, sizeof rename);
  std::memcpy(buffer.data() + offsetof(FILE_RENAME_INFO, FileName), name.data(), rename.FileNameLength);
  IO_STATUS_BLOCK status{};
  const NTSTATUS result = NtSetInformationFile(file, &status, buffer.data(), static_cast<ULONG>(buffer.size()), RENAME);
  return result < 0 ? RtlNtStatusToDosError(result) : ERROR_SUCCESS;
}

}  // namespace

struct Directory::State {
  explicit State(Handle handle) : handle(std::move(handle)) {}
  static HANDLE Of(const Directory& directory) { return directory.state ? directory.state->handle.Get() : nullptr; }

  const Handle handle;
  DirectoryLock lock;
};

Directory Directory::Open(const std::string& path) {
  const auto place = LongForm(path);
  if (!place) return Directory(ErrorOf(ERROR_INVALID_NAME));
  OpenedHandle opened = OpenBase(*place);
  if (!opened.handle) return Directory(ErrorOf(opened.error));
  FILE_BASIC_INFO about{};
  GetFileInformationByHandleEx(opened.handle.Get(), FileBasicInfo, &about, sizeof about);
  if (!(about.FileAttributes & FILE_ATTRIBUTE_DIRECTORY)) return Directory(ErrorOf(ERROR_DIRECTORY));
  Directory directory;
  directory.state = std::make_shared<State>(std::move(opened.handle));
  return directory;
}

std::optional<std::vector<std::string>> Directory::Names() const {
  return NamesIn(State::Of(*this));
}

std::optional<NamedThing> Directory::Look(const std::string& name) const {
  const OpenedHandle opened = OpenEntry(State::Of(*this), name, READ_CONTROL);
  BY_HANDLE_FILE_INFORMATION about{};
  if (!opened.handle || !GetFileInformationByHandle(opened.handle.Get(), &about)) return std::nullopt;
  NamedThing thing{NamedThing::Kind::File, about.nNumberOfLinks == 1, IsOurs(opened.handle.Get()),
                   static_cast<uint64_t>(about.nFileSizeHigh) << 32 | about.nFileSizeLow};
  if (about.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) thing.kind = NamedThing::Kind::Directory;
  if (about.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) thing.kind = NamedThing::Kind::Link;
  if (about.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) thing.kind = NamedThing::Kind::Other;
  return thing;
}

Directory Directory::Sub(std::string_view name, WhenAbsent whenAbsent) const {
  const auto path = Components(name);
  if (!path) return Directory(ErrorOf(ERROR_INVALID_NAME));
  const WhenMissing whenMissing = whenAbsent == WhenAbsent::Make ? WhenMissing::Create : WhenMissing::Fail;
  OpenedHandle opened = OpenDirectoryBeneath(State::Of(*this), *path, whenMissing);
  if (!opened.handle) return Directory(ErrorOf(opened.error));
  Directory sub;
  sub.state = std::make_shared<State>(std::move(opened.handle));
  return sub;
}

OpenedFile Directory::Read(std::string_view name) const {
  OpenedFile opened;
  const auto path = Components(name);
  OpenedHandle file{{}, ERROR_INVALID_NAME};
  if (path) file = OpenFileBeneath(State::Of(*this), *path, Purpose::Read);
  if (file.handle) opened.state = std::make_shared<OpenedFile::State>(std::move(file.handle));
  if (!opened) opened.why = ErrorOf(file.error);
  return opened;
}

SystemError Directory::MakePrivate(const std::string& name) const {
  // What is made in a directory takes over who may use it, and keeps that when it is moved: in a private one everything
  // that is delivered would become private.
  return NoneOr(MakeEntry(State::Of(*this), name, FILE_DIRECTORY_FILE).error);
}

std::optional<std::string> Directory::LinkAt(const std::string&) const {
  return std::nullopt;
}

SystemError Directory::MakeLink(const std::string&, const std::string&) const {
  return {SystemError::Kind::NotHere, ERROR_NOT_SUPPORTED, "this system makes no links"};
}

SystemError Directory::Write(const std::string& name, std::string_view text) const {
  OpenedHandle made = MakeEntry(State::Of(*this), name, FILE_NON_DIRECTORY_FILE);
  if (!made.handle) return ErrorOf(made.error);
  Win32OutputFile file(std::move(made.handle));
  const auto done = file.WriteAt(0, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
  return done == WriteOutcome::Done && file.Close() == WriteOutcome::Done ? SystemError() : LastError();
}

SystemError Directory::Move(const std::string& name, const Directory& to, const std::string& as, OntoName onto) const {
  const auto wide = ToWide(as);
  const OpenedHandle file = OpenEntry(State::Of(*this), name, DELETE);
  if (!file.handle || !wide || !IsOrdinaryName(*wide)) return ErrorOf(file.handle ? ERROR_INVALID_NAME : file.error);
  return NoneOr(Rename(file.handle.Get(), State::Of(to), *wide, onto == OntoName::Any));
}

bool Directory::Remove(const std::string& name) const {
  return RemoveIn(State::Of(*this), name);
}

SystemError Directory::Sync() const {
  // Only who may write may have it written.
  constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const Handle writable(ReOpenFile(State::Of(*this), GENERIC_WRITE, SHARE_ALL, FILE_FLAG_BACKUP_SEMANTICS));
  if (writable && FlushFileBuffers(writable.Get())) return {};
  const SystemError why = LastError();
  // A file system that knows this of files alone brings names there with its journal.
  const bool isUnknown = why.number == ERROR_INVALID_FUNCTION || why.number == ERROR_NOT_SUPPORTED;
  return isUnknown ? SystemError() : why;
}

Locked Directory::Lock(Locking locking) const {
  return state->lock.Take(State::Of(*this), locking);
}

bool Directory::IsOnFixedDisk() const {
  const std::wstring path = PathOf(State::Of(*this));
  std::wstring volume(path.size() + 1, L'\0');
  return GetVolumePathNameW(path.c_str(), volume.data(), static_cast<DWORD>(volume.size())) &&
         GetDriveTypeW(volume.c_str()) == DRIVE_FIXED;
}

uint64_t Directory::FreeBytes() const {
  ULARGE_INTEGER free{};
  return GetDiskFreeSpaceExW(PathOf(State::Of(*this)).c_str(), &free, nullptr, nullptr) ? free.QuadPart : 0;
}

// A table of names grows here as long as there are bytes.
std::optional<uint64_t> Directory::FreeNames() const {
  return std::nullopt;
}

TemporaryDirectory::TemporaryDirectory(std::string_view prefix) {
  std::wstring folder(MAX_PATH + 1, L'\0');
  folder.resize(GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()));
  std::random_device chance;
  path = ToNarrow(folder) + std::string(prefix) + std::to_string(chance());
  if (!CreateDirectoryW(ToWide(path).value_or(L"").c_str(), nullptr)) error = LastError();
}

TemporaryDirectory::~TemporaryDirectory() {
  const size_t end = path.rfind('\\') + 1;
  if (!error) Directory::Open(path.substr(0, end)).Remove(path.substr(end));
}

}  // namespace quorl::cli
