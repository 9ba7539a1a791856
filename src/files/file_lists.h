#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "files/survey.h"
#include "platform/machine.h"

namespace quorl {

/// Characters that a name on its way to a receiver may not hold.
inline constexpr std::string_view ILLEGAL_NAME_CHARS = "/*?><\"|:";

/// A file to send: where it lies on this machine, and the name under which receivers store it.
struct FileEntry {
  std::string fullPath;      ///< "C:\data\photos\a.jpg"
  std::string relativeName;  ///< "\photos\a.jpg"; fits a name field

  friend bool operator==(const FileEntry&, const FileEntry&) = default;
};

/// What a transfer carries. File number n on the wire is entry n - 1 of ArraySendFile.
struct FileLists {
  std::vector<std::string> ArrayFileName;  ///< The accepted selected paths, in the host's order.
  std::vector<FileEntry> ArraySendFile;
  std::vector<std::string> ArrayEmptyDir;  ///< Relative names of the visited directories without a subdirectory.
};

/// Whether the host wants a path left out, a directory with all that is in it; empty: none.
using PathFilter = std::function<bool(const std::string& path, bool isDirectory)>;

/// How names are cut, how deep directories are walked, and what of them.
struct ListRules {
  int32_t parentPathLength = 0;  ///< Leading bytes that a name loses when it was found in a directory; below 0: none.
  bool subDirTrans = false;      ///< Whether a selected directory is walked below its first level.
  bool sorted = false;           ///< By name within a directory; else in the file system's own order.
  PathFilter leavesOut = nullptr;
};

/// Fills the other two lists from `lists.ArrayFileName`. A missing path counts as an empty directory. What cannot
/// travel is left out: a selected FIFO, socket or device (but not a disk, which has a length), and files whose name
/// holds one of ILLEGAL_NAME_CHARS (looked for on the first level only, behind the name's first three bytes), or a
/// backslash, or does not fit a name field, or which have more blocks than can be numbered. -1 when such a thing was
/// left out, 0 when nothing is selected or memory ran out (what was listed stays), else the number of files. Runs on
/// the host's thread; opens every file once. `tell`, unless it is empty, hears of each file and directory as it is met,
/// and of what is left out.
int32_t BuildFileList(const Machine& machine, const ListRules& rules, FileLists& lists,
                      const SurveyListener& tell = nullptr);

}  // namespace quorl
