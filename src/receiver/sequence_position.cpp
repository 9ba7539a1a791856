#include "receiver/sequence_position.h"

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

// Repeated and earlier blocks follow as well: they skip nothing.
bool SequencePosition::IsFollowedBy(uint32_t file, uint32_t block) const {
  const bool nextFile = file == seenFile + 1;
  return block <= seenBlock + 1 && file <= seenFile + 1 && (!nextFile || seenBlock >= seenLastBlock);
}

}  // namespace quorl
