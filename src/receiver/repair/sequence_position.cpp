#include "receiver/repair/sequence_position.h"

namespace quorl {

std::optional<GapRecord> SequencePosition::MoveTo(uint32_t file, uint32_t block, uint32_t lastBlock) {
  std::optional<GapRecord> gap;
  if (!IsFollowedBy(file, block)) gap = GapRecord{seenFile, seenBlock, seenLastBlock, file, block, lastBlock};
  seenFile = file;
  seenBlock = block;
  seenLastBlock = lastBlock;
  return gap;
}

void SequencePosition::MoveToResent(uint32_t file, uint32_t block) {
  seenFile = file;
  seenBlock = block;
}

// Repeated and earlier blocks follow as well: they skip nothing. A file is begun by its first block alone.
bool SequencePosition::IsFollowedBy(uint32_t file, uint32_t block) const {
  if (file == seenFile + 1) return block == 0 && seenBlock >= seenLastBlock;
  return block <= seenBlock + 1 && file <= seenFile + 1;
}

}  // namespace quorl
