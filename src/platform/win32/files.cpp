// Files and directories. What a sender's host names is opened as named; what came from the network goes through
// beneath.h.
#include "platform/win32/files.h"

#include "platform/win32/open_files.h"
#include "platform/win32/text.h"

namespace quorl {

namespace {

class Search {
 public:
  explicit Search(const std::wstring& pattern) : handle(FindFirstFileW(pattern.c_str(), &found)) {}
  ~Search() {
    if (*this) FindClose(handle);
  }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  explicit operator bool() const { return handle != INVALID_HANDLE_VALUE; }
  const WIN32_FIND_DATAW& Found() const { return found; }
  bool Next() { return FindNextFileW(handle, &found); }

 private:
  WIN32_FIND_DATAW found{};
  const HANDLE handle;
};

/// What the entry is for a sender, or nothing when it does not travel: links to directories do not, nor what is neither
/// file nor directory.
std::optional<DirectoryEntry> EntryFor(const WIN32_FIND_DATAW& found) {
  const std::wstring_view name = found.cFileName;
  const bool isDirectory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const bool isLink = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) &&
                      (found.dwReserved0 == IO_REPARSE_TAG_SYMLINK || found.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT);
  if (name == L"." || name == L".." || (isDirectory && isLink)) return std::nullopt;
  if (found.dwFileAttributes & FILE_ATTRIBUTE_DEVICE) return std::nullopt;
  return DirectoryEntry{ToNarrow(name), isDirectory};
}

std::wstring WithoutLastBackslash(std::wstring path) {
  if (path.ends_with(L'\\')) path.pop_back();
  return path;
}

}  // namespace

PathKind Win32Files::KindOf(const std::string& path) {
  const auto place = drives.Resolve(path);
  const DWORD attributes = place ? GetFileAttributesW(place->c_str()) : INVALID_FILE_ATTRIBUTES;
  if (attributes == INVALID_FILE_ATTRIBUTES) return PathKind::Missing;
  if (attributes & FILE_ATTRIBUTE_DIRECTORY) return PathKind::Directory;
  return attributes & FILE_ATTRIBUTE_DEVICE ? PathKind::Other : PathKind::File;
}

std::optional<std::vector<DirectoryEntry>> Win32Files::ListDirectory(const std::string& path) {
  const auto place = drives.Resolve(path);
  if (!place) return std::nullopt;
  Search search(WithoutLastBackslash(*place) + L"\\*");
  if (!search) return std::nullopt;
  std::vector<DirectoryEntry> entries;
  do {
    if (auto entry = EntryFor(search.Found())) entries.push_back(std::move(*entry));
  } while (search.Next());
  if (GetLastError() != ERROR_NO_MORE_FILES) return std::nullopt;
  return entries;
}

// As long as it is open nobody may write to it.
std::unique_ptr<InputFile> Win32Files::OpenInput(const std::string& path) {
  const auto place = drives.Resolve(path);
  if (!place) return nullptr;
  Handle handle(CreateFileW(place->c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                            FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!handle || GetFileType(handle.Get()) != FILE_TYPE_DISK) return nullptr;
  return std::make_unique<Win32InputFile>(std::move(handle));
}

// Links on the way are the user's own.
void Win32Files::MakeTarget(const std::string& base) {
  const auto place = drives.ResolveTarget(base);
  if (!place) return;
  // The first ones are those of the long form and the drive.
  for (size_t end = place->find(L'\\', 7); end != std::wstring::npos; end = place->find(L'\\', end + 1))
    CreateDirectoryW(place->substr(0, end).c_str(), nullptr);
  CreateDirectoryW(place->c_str(), nullptr);
}

void Win32Files::CreateDirectories(const std::string& base, const RelativePath& name) {
  const auto place = drives.ResolveTarget(base);
  if (!place) return;
  const OpenedHandle directory = OpenBase(*place);
  if (directory.handle) MakeDirectoriesBeneath(directory.handle.Get(), name);
}

bool Win32Files::CanOpenOutput(const std::string& base, const RelativePath& name) {
  const DWORD error = OpenBeneathTarget(base, name, Purpose::Write).error;
  if (error != ERROR_SHARING_VIOLATION) return error == ERROR_SUCCESS;
  // It is the file that this receiver is writing, or somebody else's for a moment.
  return OpenBeneathTarget(base, name, Purpose::Look).error == ERROR_SUCCESS;
}

OpenedOutput Win32Files::OpenOutput(const std::string& base, const RelativePath& name, WhenMissing whenMissing) {
  OpenedHandle opened =
      OpenBeneathTarget(base, name, whenMissing == WhenMissing::Create ? Purpose::WriteOrCreate : Purpose::Write);
  if (!opened.handle) return {nullptr, OutcomeOf(opened.error)};
  return {std::make_unique<Win32OutputFile>(std::move(opened.handle)), WriteOutcome::Done};
}

OpenedHandle Win32Files::OpenBeneathTarget(const std::string& base, const RelativePath& name, Purpose purpose) const {
  const auto place = drives.ResolveTarget(base);
  if (!place) return {{}, ERROR_PATH_NOT_FOUND};
  const OpenedHandle directory = OpenBase(*place);
  if (!directory.handle) return {{}, directory.error};
  return OpenFileBeneath(directory.handle.Get(), name, purpose);
}

}  // namespace quorl
