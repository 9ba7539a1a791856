#pragma once

#include "platform/files.h"
#include "platform/win32/handle.h"

namespace quorl {

/// Either the handle, or the system's error number.
struct OpenedHandle {
  Handle handle;
  DWORD error = ERROR_SUCCESS;
};

/// The directory that received names are resolved beneath; it may be reached through links.
OpenedHandle OpenBase(const std::wstring& path);

/// Opens what has that name directly in `directory`, a link itself and not what it leads to, and keeps nobody from
/// using it. Only an ordinary name.
OpenedHandle OpenEntry(HANDLE directory, const std::string& name, ACCESS_MASK access);

/// Makes a file or, as `kind` says (FILE_DIRECTORY_FILE), a directory directly in `directory`, of a name that is free.
OpenedHandle MakeEntry(HANDLE directory, const std::string& name, ULONG kind);

/// What an opening of a file is for.
enum class Purpose { Look, Read, Write, WriteOrCreate };

/// Opens a regular file beneath `base`, for which no reparse point (a symbolic link, a mounted directory) is followed
/// or opened, and no other name than the one that the file system itself shows is accepted: a short alias ("LONGNA~1")
/// reaches nothing. Only a file that has no other name.
OpenedHandle OpenFileBeneath(HANDLE base, const RelativePath& name, Purpose purpose);

/// Opens a directory beneath `base` by the same rules; no name is `base` itself.
OpenedHandle OpenDirectoryBeneath(HANDLE base, const RelativePath& name, WhenMissing whenMissing);

/// Makes every directory of `name` that does not exist, as far as it goes.
void MakeDirectoriesBeneath(HANDLE base, const RelativePath& name);

}  // namespace quorl
