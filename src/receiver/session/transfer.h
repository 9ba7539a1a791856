#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "protocol/datagrams.h"

namespace quorl {

/// Hears of what has been written of a file: whole blocks from `firstBlock` on, before they count as stored.
using StoreListener =
    std::function<void(uint32_t file, const std::string& name, uint32_t firstBlock, std::span<const uint8_t> bytes)>;

/// What a receiver knows of one transfer from its announcement. Never changes; each queued block holds the transfer it
/// came with, so that the writer cannot mix two of them.
struct AnnouncedTransfer {
  uint32_t generation = 0;  ///< Counts the announcements; 0 before the first.
  Task task;
  std::string targetDir;
  StoreListener listener;  ///< On the writer's thread; empty: nobody.

  bool IsAnnounced() const { return generation != 0; }
};

using TransferPtr = std::shared_ptr<const AnnouncedTransfer>;

}  // namespace quorl
