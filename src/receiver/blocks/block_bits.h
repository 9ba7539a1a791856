#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace quorl {

/// A set of the block numbers of one file, one bit a block. Memory follows the highest number that was ever in it; that
/// of a small file is here, as there may be very many of those.
class BlockBits {
 public:
  /// True when it was not there.
  bool Set(uint32_t block);
  /// True when it was there.
  bool Clear(uint32_t block);
  bool Test(uint32_t block) const;

  uint64_t Count() const { return count; }

  /// The lowest number in the set.
  std::optional<uint32_t> FirstSet() const;
  /// The lowest number from `from` on that is not in the set.
  uint64_t FirstClear(uint32_t from = 0) const;

 private:
  size_t Words() const { return 1 + further.size(); }
  uint64_t& Word(size_t word) { return word == 0 ? first : further[word - 1]; }
  uint64_t Word(size_t word) const { return word == 0 ? first : further[word - 1]; }

  uint64_t first = 0;
  std::vector<uint64_t> further;
  uint32_t count = 0;
  // Where the two searches go on, so that going through a whole file looks at each word once.
  mutable uint32_t emptyWords = 0;  ///< So many words from the start are 0.
  mutable uint32_t fullWords = 0;   ///< So many words from the start have every bit.
};

}  // namespace quorl
