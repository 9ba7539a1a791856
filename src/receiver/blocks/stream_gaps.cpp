#include "receiver/blocks/stream_gaps.h"

#include <algorithm>

namespace quorl {

namespace {

// A gap of more blocks, or files, was left out of the stream; to look at each would take long.
constexpr uint64_t LONGEST_GAP = 16384;

}  // namespace

void StreamGaps::Take(const BlockHead& head, const BlockRecord& record) {
  const bool isSameFile = head.file == latest.file;
  if (head.file < latest.file || (isSameFile && head.block <= latest.block)) {
    // It was only late.
    if (!record.IsReceived({head.file, head.block})) {
      ++came;
      lost -= std::min<uint64_t>(lost, 1);
    }
    return;
  }
  if (isSameFile) {
    lost += CountMissing(head.file, uint64_t{latest.block} + 1, head.block, record);
  } else {
    lost += CountMissing(latest.file, uint64_t{latest.block} + 1, latestBlocks, record);
    if (head.file - latest.file <= LONGEST_GAP)
      for (uint32_t file = latest.file + 1; file < head.file; ++file) lost += CountMissing(file, 0, 1, record);
    lost += CountMissing(head.file, 0, head.block, record);
  }
  latest = {head.file, head.block};
  latestBlocks = uint64_t{head.lastBlock} + 1;
  ++came;
}

uint64_t StreamGaps::CountMissing(uint32_t file, uint64_t from, uint64_t to, const BlockRecord& record) const {
  uint64_t missing = 0;
  if (to - std::min(from, to) > LONGEST_GAP) return 0;
  for (uint64_t block = from; block < to; ++block)
    if (!record.IsReceived({file, static_cast<uint32_t>(block)})) ++missing;
  return missing;
}

}  // namespace quorl
