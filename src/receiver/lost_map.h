#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace quorl {

/// A block that is missing.
struct LostBlock {
  uint32_t file = 0;
  uint32_t block = 0;

  friend bool operator==(const LostBlock&, const LostBlock&) = default;
};

inline constexpr size_t PAD_DIGITS = 10;

/// `number` in decimal with zeros in front, so that texts order as the numbers do.
std::array<char, PAD_DIGITS> PadNumber(uint32_t number);

/// The key of a block: its file number and its block number, padded.
using BlockKey = std::array<char, 2 * PAD_DIGITS>;
BlockKey blockKey(LostBlock block);

/// The blocks known to be missing, in the order of file and block. Not for several threads at once.
class LostMap {
 public:
  /// Blocks that it holds at most. A receiver that misses more learns of the rest when these have come.
  static constexpr size_t LIMIT = 262144;

  /// Entering a block twice leaves one entry. False when there is no room for it.
  bool Enter(LostBlock block);

  /// Whether it was there.
  bool Remove(LostBlock block);
  void RemoveFile(uint32_t file);
  void Clear() { lostMap.clear(); }

  bool Contains(LostBlock block) const { return lostMap.contains(blockKey(block)); }
  bool IsEmpty() const { return lostMap.empty(); }
  size_t Size() const { return lostMap.size(); }

  /// The first in the order of file and block.
  std::optional<LostBlock> First() const;

 private:
  std::map<BlockKey, LostBlock> lostMap;
};

}  // namespace quorl
