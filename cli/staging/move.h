#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cli/options/options.h"
#include "cli/staging/tree.h"

namespace quorl::cli {

struct MoveRules {
  Existing existing = Existing::Rename;
  bool sync = false;      ///< Files and then directories reach the disk itself.
  bool inOneStep = true;  ///< False: as on a system that cannot rename to free names only.
};

/// What has been moved and what has not. Names are relative, with "/".
struct MoveReport {
  struct Moved {
    std::string name;  ///< As it was received.
    std::string as;    ///< As it stands now.
    bool isLink = false;
  };
  struct Refused {
    std::string name;
    std::string why;
  };
  std::vector<Moved> moved;
  uint64_t bytes = 0;
  std::vector<std::string> alike;    ///< Had a name under which a file with the same contents stands.
  std::vector<std::string> skipped;  ///< Policy Skip: had a name that was taken.
  std::vector<std::string> taken;    ///< Policy Fail: names that were taken; nothing has been moved then.
  std::vector<Refused> refused;      ///< Could not be moved, the others have been.
  std::vector<std::string> unmade;   ///< Links, which this system cannot make.
  bool hadNoRoom = false;            ///< Some of those for want of room.
  bool synced = true;                ///< False when a directory could not be brought to the disk.
};

/// Moves every file of `tree` from the directory `staging` to its name beneath `target`, which is on the same file
/// system, and makes the empty directories that are not there. Nothing beneath `target` is reached through a link, and
/// each file appears under its name in one step. What is refused stays in `staging`. Links come last, and each is made
/// only when what stands on its way and at its end beneath `target` is what was delivered.
MoveReport MoveTree(const Directory& staging, const Directory& target, const StagedTree& tree, const MoveRules& rules);

}  // namespace quorl::cli
