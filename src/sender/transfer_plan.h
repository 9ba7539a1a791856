#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "files/file_lists.h"
#include "protocol/block_ranges.h"

namespace quorl {

/// What a transfer carries, and how. Fixed for the whole transfer.
struct TransferPlan {
  std::shared_ptr<const FileLists> lists{};
  std::string autoOpenName{};
  uint32_t targetFolder = 0;
  std::string targetPath{};
  uint32_t rate = 0;      ///< kbit/s, or 0.
  BlockRanges skipped{};  ///< The stream leaves them out.
  /// Hears of every block of the stream before it leaves; empty: nobody does.
  std::function<void(uint32_t file, uint32_t block, std::span<const uint8_t> bytes)> listener{};

  uint32_t FileCount() const { return static_cast<uint32_t>(lists->ArraySendFile.size()); }
  /// `number` is 1 to FileCount().
  const FileEntry& File(uint32_t number) const { return lists->ArraySendFile.at(number - 1); }
};

}  // namespace quorl
