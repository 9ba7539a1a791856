#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "receiver/blocks/lost_block.h"
#include "receiver/repair/sequence_position.h"

namespace quorl {

/// The blocks that a gap stands for, one after the other: the rest of the old file, block 0 of each file in between,
/// the start of the new file. Whether they exist at all is for the caller to judge.
class GapExpansion {
 public:
  /// Yields at most `limit` blocks, so that no numbers in a datagram make it run longer than the transfer is.
  GapExpansion(const GapRecord& gap, uint64_t limit);

  /// The next block; nothing at the end.
  std::optional<LostBlock> Next();

 private:
  /// `count` blocks of one file, or block 0 of `count` files.
  struct Part {
    LostBlock first;
    uint64_t count = 0;
    bool acrossFiles = false;
  };

  std::array<Part, 3> parts;
  size_t part = 0;
  uint64_t yieldedOfPart = 0;
  uint64_t left;
};

}  // namespace quorl
