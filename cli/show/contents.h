#pragma once

#include <cstdint>
#include <vector>

namespace quorl::cli {

/// The contents of a selection, file by file in the order in which they travel: from blocks, whose last one in a file
/// is not full, to the contents in them.
class Contents {
 public:
  struct Amount {
    uint64_t blocks = 0;
    uint64_t bytes = 0;
  };

  void Add(uint64_t bytes, uint64_t blocks);

  uint64_t Bytes() const { return total.bytes; }
  uint64_t Blocks() const { return total.blocks; }
  uint64_t Files() const { return before.size(); }

  /// Bytes of contents in the first `blocks` of them.
  uint64_t BytesIn(uint64_t blocks) const;

 private:
  std::vector<Amount> before;  ///< Each file.
  Amount total;
};

}  // namespace quorl::cli
