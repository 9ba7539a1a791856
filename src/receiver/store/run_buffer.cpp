// The writer's decisions: which blocks go to the disk together, and where. A first sending stays in the run until the
// run is full or reaches the end of its file; a block that was sent again is written by itself at once.
#include "receiver/store/run_buffer.h"

#include <algorithm>
#include <cassert>

namespace quorl {

bool RunBuffer::Takes(uint32_t block, bool firstSending) const {
  return IsEmpty() || (firstSending && block == writeBlock + 1);
}

void RunBuffer::Add(uint32_t block, std::span<const uint8_t> bytes) {
  assert(runCount < RUN_BLOCKS && runBytes == runCount * BLOCK_SIZE && bytes.size() <= BLOCK_SIZE);
  std::copy(bytes.begin(), bytes.end(), runBuffer.begin() + static_cast<ptrdiff_t>(runBytes));
  runBytes += bytes.size();
  ++runCount;
  writeBlock = block;
}

bool RunBuffer::IsDue(uint32_t lastBlock, bool firstSending) const {
  return !firstSending || runCount == RUN_BLOCKS || writeBlock >= lastBlock;
}

RunWrite RunBuffer::Take() {
  const uint32_t firstBlock = writeBlock - runCount + 1;
  const RunWrite write{firstBlock, runCount, FileShape::BlockOffset(firstBlock), std::span(runBuffer).first(runBytes)};
  runCount = 0;
  runBytes = 0;
  return write;
}

}  // namespace quorl
