#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/machine.h"

namespace quorl {

/// Characters that a name on its way to a receiver may not hold.
inline constexpr std::string_view ILLEGAL_NAME_CHARS = "/*?><\"|:";

/// A file to send: where it lies on this machine, and the name under which receivers store it.
struct FileEntry {
  std::string fullPath;      ///< "C:\data\photos\a.jpg"
  std::string relativeName;  ///< "\photos\a.jpg", at most 519 bytes

  friend bool operator==(const FileEntry&, const FileEntry&) = default;
};

/// What a transfer carries. File number n on the wire is entry n - 1 of ArraySendFile.
struct FileLists {
  std::vector<std::string> ArrayFileName;  ///< The accepted selected paths, in the host's order.
  std::vector<FileEntry> ArraySendFile;
  std::vector<std::string> ArrayEmptyDir;  ///< Relative names of the visited directories without a subdirectory.
};

/// How names are cut and how deep directories are walked.
struct ListRules {
  int32_t parentPathLength = 0;  ///< Leading bytes that a name loses when it was found in a directory; below 0: none.
  bool subDirTrans = false;      ///< Whether a selected directory is walked below its first level.
};

/// Fills the other two lists from `lists.ArrayFileName`. A path that is no file counts as a directory, a missing one as
/// an empty directory. Files that cannot travel are left out: their name holds one of ILLEGAL_NAME_CHARS (looked for
/// on the first level only, behind the name's first three bytes), or a backslash, or is longer than 519 bytes, or they
/// have more blocks than can be numbered.
/// -1 when something was left out, 0 when nothing is selected or memory ran out (what was listed stays), else the
/// number of files. Runs on the host's thread; opens every file once.
int32_t BuildFileList(const Machine& machine, const ListRules& rules, FileLists& lists);

}  // namespace quorl
