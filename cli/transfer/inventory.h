#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "cli/manifest/verify.h"
#include "cli/staging/staging.h"
#include "cli/talk/messages.h"

namespace quorl::cli {

/// What a receiver has of a catalogue.
struct Inventory {
  bool isWhole = false;  ///< False when `progress` ended the work.
  InPlace inPlace;
  std::vector<Have::Run> runs;  ///< As the sender is told.
  std::vector<QuorlBlocks> held;
  std::set<std::string> used;  ///< Files in the directory of what was kept that are part of it.
};

struct InventoryRules {
  bool quick = false;     ///< Size and time are enough.
  bool onlyKept = false;  ///< What stands in its place does not count.
  DigestProgress progress;
};

/// Looks for the files of `catalogue` in their places, and then among those that an earlier transfer has left.
Inventory TakeInventory(const Manifest& catalogue, const Staging& staging, const InventoryRules& rules);

}  // namespace quorl::cli
