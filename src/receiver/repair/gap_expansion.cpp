#include "receiver/repair/gap_expansion.h"

namespace quorl {

GapExpansion::GapExpansion(const GapRecord& gap, uint64_t limit) : left(limit) {
  if (gap.toFile == gap.fromFile) {
    // A block behind the position yields nothing; the sequence test never makes such a gap.
    if (gap.toBlock > gap.fromBlock) parts[0] = {{gap.fromFile, gap.fromBlock + 1}, gap.toBlock - gap.fromBlock - 1};
  } else if (gap.toFile > gap.fromFile) {
    if (gap.fromFile != 0 && gap.fromLastBlock > gap.fromBlock)
      parts[0] = {{gap.fromFile, gap.fromBlock + 1}, gap.fromLastBlock - gap.fromBlock};
    parts[1] = {{gap.fromFile + 1, 0}, gap.toFile - gap.fromFile - 1, true};
    parts[2] = {{gap.toFile, 0}, gap.toBlock};
  }
}

std::optional<LostBlock> GapExpansion::Next() {
  while (part < parts.size() && yieldedOfPart == parts[part].count) {
    ++part;
    yieldedOfPart = 0;
  }
  if (part == parts.size() || left == 0) return std::nullopt;
  --left;
  LostBlock block = parts[part].first;
  (parts[part].acrossFiles ? block.file : block.block) += static_cast<uint32_t>(yieldedOfPart++);
  return block;
}

}  // namespace quorl
