// Confinement of received names. A name from the network is only ever used through the functions here: each component
// is opened in the directory that was opened before it, never by a path, so nobody can put a link between a check and
// the use. The Win32 calls know paths only, so it is the system's call below them that opens.
#include "platform/win32/beneath.h"

#include <winternl.h>

#include "platform/win32/ordinary_name.h"
#include "platform/win32/text.h"

namespace quorl {

namespace {

constexpr DWORD SHARE_ALL = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr ACCESS_MASK LOOK_ACCESS = FILE_READ_ATTRIBUTES | SYNCHRONIZE;
constexpr ACCESS_MASK DIRECTORY_ACCESS = LOOK_ACCESS | FILE_TRAVERSE | FILE_LIST_DIRECTORY;
constexpr ACCESS_MASK READ_ACCESS = FILE_GENERIC_READ | FILE_WRITE_ATTRIBUTES;
constexpr ACCESS_MASK WRITE_ACCESS = LOOK_ACCESS | FILE_WRITE_DATA | FILE_APPEND_DATA;

/// How one component is opened where it exists.
struct Manner {
  ACCESS_MASK access;
  ULONG share;
  ULONG kind;
};

constexpr Manner DIRECTORY{DIRECTORY_ACCESS, SHARE_ALL, FILE_DIRECTORY_FILE};
constexpr Manner FILE_TO_LOOK_AT{LOOK_ACCESS, SHARE_ALL, FILE_NON_DIRECTORY_FILE};
// The times of a file that is read may be set.
constexpr Manner FILE_TO_READ{READ_ACCESS, SHARE_ALL, FILE_NON_DIRECTORY_FILE};
// Nobody else writes to a file that is being received, or takes it away; who reads it does no harm.
constexpr Manner FILE_TO_WRITE{WRITE_ACCESS, FILE_SHARE_READ, FILE_NON_DIRECTORY_FILE};

const Manner& MannerFor(Purpose purpose) {
  if (purpose == Purpose::Look) return FILE_TO_LOOK_AT;
  return purpose == Purpose::Read ? FILE_TO_READ : FILE_TO_WRITE;
}

OpenedHandle OpenIn(HANDLE directory, std::wstring& component, const Manner& manner, ULONG disposition) {
  UNICODE_STRING name{};
  name.Buffer = component.data();
  name.Length = name.MaximumLength = static_cast<USHORT>(component.size() * sizeof(wchar_t));
  OBJECT_ATTRIBUTES attributes{};
  InitializeObjectAttributes(&attributes, &name, OBJ_CASE_INSENSITIVE, directory, nullptr);
  IO_STATUS_BLOCK status{};
  HANDLE opened = nullptr;
  const ULONG options = manner.kind | FILE_OPEN_REPARSE_POINT | FILE_SYNCHRONOUS_IO_NONALERT;
  const NTSTATUS result = NtCreateFile(&opened, manner.access, &attributes, &status, nullptr, FILE_ATTRIBUTE_NORMAL,
                                       manner.share, disposition, options, nullptr, 0);
  if (result < 0) return {{}, RtlNtStatusToDosError(result)};
  return {Handle(opened), ERROR_SUCCESS};
}

/// The path below the volume by the names that the file system itself shows; empty when it does not tell.
std::wstring FinalPath(HANDLE handle) {
  constexpr DWORD FLAGS = FILE_NAME_NORMALIZED | VOLUME_NAME_NONE;
  std::wstring path(GetFinalPathNameByHandleW(handle, nullptr, 0, FLAGS), L'\0');
  path.resize(GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), FLAGS));
  return path;
}

bool SameName(const std::wstring& left, const std::wstring& right) {
  return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(), static_cast<int>(right.size()),
                              TRUE) == CSTR_EQUAL;
}

/// Walks down from the base. Each step is allowed only to where it seems to lead.
class Walk {
 public:
  explicit Walk(HANDLE base) : directory(base), path(FinalPath(base)) {
    while (path.ends_with(L'\\')) path.pop_back();
  }

  /// Gives away the handle of where it is.
  OpenedHandle Arrived() {
    if (owned) return {std::move(owned), ERROR_SUCCESS};
    std::wstring itself;
    return OpenIn(directory, itself, DIRECTORY, FILE_OPEN);
  }

  OpenedHandle Open(const std::string& component, const Manner& manner, WhenMissing whenMissing) {
    auto wide = ToWide(component);
    if (!wide || !IsOrdinaryName(*wide)) return {{}, ERROR_INVALID_NAME};
    OpenedHandle opened = OpenIn(directory, *wide, manner, FILE_OPEN);
    // A call of its own, which makes nothing at the other end of a link.
    if (opened.error == ERROR_FILE_NOT_FOUND && whenMissing == WhenMissing::Create)
      opened = OpenIn(directory, *wide, manner, FILE_CREATE);
    // The thread that stores blocks makes directories too, and was first.
    if (opened.error == ERROR_ALREADY_EXISTS) opened = OpenIn(directory, *wide, manner, FILE_OPEN);
    if (!opened.handle) return opened;
    FILE_BASIC_INFO about{};
    if (!GetFileInformationByHandleEx(opened.handle.Get(), FileBasicInfo, &about, sizeof about))
      return {{}, GetLastError()};
    const std::wstring expected = path + L'\\' + *wide;
    if ((about.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) || !SameName(FinalPath(opened.handle.Get()), expected))
      return {{}, ERROR_ACCESS_DENIED};
    return opened;
  }

  DWORD Enter(const std::string& component, WhenMissing whenMissing) {
    OpenedHandle opened = Open(component, DIRECTORY, whenMissing);
    if (!opened.handle) return opened.error;
    owned = std::move(opened.handle);
    directory = owned.Get();
    path += L'\\' + ToWide(component).value();
    return ERROR_SUCCESS;
  }

 private:
  HANDLE directory;
  Handle owned;
  std::wstring path;  // Of the directory, as FinalPath gives it.
};

bool HasOneName(HANDLE file) {
  BY_HANDLE_FILE_INFORMATION about{};
  return GetFileInformationByHandle(file, &about) && about.nNumberOfLinks == 1;
}

}  // namespace

OpenedHandle OpenBase(const std::wstring& path) {
  Handle base(CreateFileW(path.c_str(), DIRECTORY_ACCESS, SHARE_ALL, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                          nullptr));
  if (!base) return {{}, GetLastError()};
  return {std::move(base), ERROR_SUCCESS};
}

OpenedHandle OpenEntry(HANDLE directory, const std::string& name, ACCESS_MASK access) {
  auto wide = ToWide(name);
  if (!wide || !IsOrdinaryName(*wide)) return {{}, ERROR_INVALID_NAME};
  return OpenIn(directory, *wide, {access | LOOK_ACCESS, SHARE_ALL, 0}, FILE_OPEN);
}

OpenedHandle MakeEntry(HANDLE directory, const std::string& name, ULONG kind) {
  auto wide = ToWide(name);
  if (!wide || !IsOrdinaryName(*wide)) return {{}, ERROR_INVALID_NAME};
  const ACCESS_MASK access = kind == FILE_DIRECTORY_FILE ? DIRECTORY_ACCESS : WRITE_ACCESS;
  return OpenIn(directory, *wide, {access, SHARE_ALL, kind}, FILE_CREATE);
}

OpenedHandle OpenDirectoryBeneath(HANDLE base, const RelativePath& name, WhenMissing whenMissing) {
  Walk walk(base);
  for (const std::string& component : name.Components())
    if (const DWORD error = walk.Enter(component, whenMissing)) return {{}, error};
  return walk.Arrived();
}

OpenedHandle OpenFileBeneath(HANDLE base, const RelativePath& name, Purpose purpose) {
  if (name.IsEmpty()) return {{}, ERROR_INVALID_NAME};
  Walk walk(base);
  const RelativePath above = name.Parent();
  for (const std::string& component : above.Components())
    if (const DWORD error = walk.Enter(component, WhenMissing::Fail)) return {{}, error};
  const WhenMissing whenMissing = purpose == Purpose::WriteOrCreate ? WhenMissing::Create : WhenMissing::Fail;
  OpenedHandle opened = walk.Open(name.Components().back(), MannerFor(purpose), whenMissing);
  if (!opened.handle || HasOneName(opened.handle.Get())) return opened;
  return {{}, ERROR_ACCESS_DENIED};
}

void MakeDirectoriesBeneath(HANDLE base, const RelativePath& name) {
  Walk walk(base);
  for (const std::string& component : name.Components())
    if (walk.Enter(component, WhenMissing::Create) != ERROR_SUCCESS) return;
}

}  // namespace quorl
