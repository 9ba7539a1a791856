#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "protocol/datagrams.h"

namespace quorl {

/// What a receiver knows of one transfer from its announcement. Never changes; each queued block holds the transfer it
/// came with, so that the writer cannot mix two of them.
struct AnnouncedTransfer {
  uint32_t generation = 0;  ///< Counts the announcements; 0 before the first.
  Task task;
  std::string targetDir;

  bool IsAnnounced() const { return generation != 0; }
};

using TransferPtr = std::shared_ptr<const AnnouncedTransfer>;

}  // namespace quorl
