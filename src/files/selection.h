#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "files/file_lists.h"

namespace quorl {

/// What the sender's host has chosen to send. Used by the host's thread only; the lists that it hands out never change
/// and may go to any thread.
class Selection {
 public:
  explicit Selection(const Machine& machine);

  /// Replaces the selection. Paths are full paths of QUORL_SHORTEST_PATH to QUORL_PATH_LENGTH bytes, files and
  /// directories mixed; the last path's parent directory is what all names lose. An empty newAutoOpenName keeps the one
  /// before. `sorted`, `leavesOut`: see ListRules.
  /// 1 done; 2 a path is too long; 3 too short; 4 has no colon after its first byte; 5 holds an illegal character
  /// behind its third; 6 no memory; 7 listed, but something that cannot travel was left out (autoOpenName is kept).
  /// After 2 to 6 only the paths before the failing one are held, and nothing is to be sent.
  int32_t SetSelectFiles(const std::vector<std::string>& paths, const std::string& newAutoOpenName, bool sorted,
                         const PathFilter& leavesOut = nullptr);

  /// Nonzero walks directories to any depth, from the next SetSelectFiles on.
  void SetSubDirTrans(uint32_t flag) { subDirTrans = flag; }

  /// 1 when the latest SetSelectFiles since Reset left something out, else 0.
  uint32_t GetIsHasInvalidChar() const { return hasInvalidChar; }

  const std::string& AutoOpenName() const { return autoOpenName; }

  /// What a new initialisation of the sender clears: autoOpenName and hasInvalidChar. The lists stay.
  void Reset();

  /// Never null.
  std::shared_ptr<const FileLists> Lists() const { return lists; }

 private:
  void ClearFileLists();
  int32_t AcceptPaths(const std::vector<std::string>& paths);

  const Machine machine;
  std::shared_ptr<FileLists> lists;
  uint32_t subDirTrans = 0;
  uint32_t hasInvalidChar = 0;
  std::string autoOpenName;
};

/// Whether SetSelectFiles takes a path of this form.
bool IsAcceptedPath(const std::string& path);

/// How a selection of these paths, of which there is one at least, is listed.
ListRules RulesFor(const std::vector<std::string>& paths, bool subDirTrans, bool sorted, const PathFilter& leavesOut);

}  // namespace quorl
