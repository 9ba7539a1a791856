#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "protocol/blocks.h"

namespace quorl {

/// Blocks that go to the disk with one write.
inline constexpr uint32_t RUN_BLOCKS = 30;

/// What one write takes: consecutive blocks of one file.
struct RunWrite {
  uint32_t firstBlock = 0;
  uint32_t blockCount = 0;
  uint64_t offset = 0;
  std::span<const uint8_t> bytes;  ///< Out of a RunBuffer: valid until its next Add.
};

/// Gathers consecutive blocks of one file, and says when they are to be written. A block that does not extend the run
/// waits until its owner has taken the run out. Used by one thread.
class RunBuffer {
 public:
  bool IsEmpty() const { return runCount == 0; }

  /// Whether `block` may be added now: the run is empty, or the block comes next in the stream.
  bool Takes(uint32_t block, bool firstSending) const;

  /// `bytes`: at most BLOCK_SIZE.
  void Add(uint32_t block, std::span<const uint8_t> bytes);

  /// Whether the run is to be written now that a block of a file with this last block has been added.
  bool IsDue(uint32_t lastBlock, bool firstSending) const;

  /// The run, and empties the buffer.
  RunWrite Take();

 private:
  uint32_t writeBlock = 0;  // the last block of the run
  uint32_t runCount = 0;
  size_t runBytes = 0;
  std::array<uint8_t, RUN_BLOCKS * BLOCK_SIZE> runBuffer{};
};

}  // namespace quorl
