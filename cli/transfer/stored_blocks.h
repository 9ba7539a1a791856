#pragma once

#include <quorl/host.h>

#include <vector>

namespace quorl::cli {

/// What the library has on the disk of the latest transfer.
inline std::vector<QuorlBlocks> StoredBlocks() {
  std::vector<QuorlBlocks> blocks(GetStoredBlocks(nullptr, 0), {.size = sizeof(QuorlBlocks)});
  GetStoredBlocks(blocks.data(), static_cast<uint32_t>(blocks.size()));
  return blocks;
}

}  // namespace quorl::cli
