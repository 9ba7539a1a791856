#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace quorl {

/// Blocks `first` to `first + count - 1` of a file of `length` bytes.
struct BlockRange {
  uint32_t file = 0;
  uint32_t first = 0;
  uint32_t count = 0;
  uint64_t length = 0;

  uint64_t End() const { return uint64_t{first} + count; }
};

/// Ranges of the blocks of several files, in ascending order and apart from each other.
class BlockRanges {
 public:
  BlockRanges() = default;

  /// False, and nothing is taken, when the order is not kept.
  bool Take(const std::vector<BlockRange>& ranges);

  /// Whether the block is in one of them.
  bool Has(uint32_t file, uint32_t block) const;
  /// How many of a file's first `blocks` blocks are.
  uint64_t CountOf(uint32_t file, uint64_t blocks) const;

  const std::map<uint32_t, std::vector<BlockRange>>& Files() const { return files; }

 private:
  std::map<uint32_t, std::vector<BlockRange>> files;
};

}  // namespace quorl
