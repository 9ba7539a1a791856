#include "coded/group_layout.h"

#include <algorithm>

namespace quorl {

namespace {

constexpr uint32_t BLOCKS_PER_GROUP = GROUP_SIZE / BLOCK_SIZE;

}  // namespace

// A full block of a file either fits into the group that the file begins in, or is one of BLOCKS_PER_GROUP in a later
// one. The tail fits behind the last full block, or begins a group.
GroupLayout::GroupLayout(std::vector<FileShape> files) : shapes(std::move(files)) {
  Start next;
  for (const FileShape& shape : shapes) {
    starts.push_back(next);
    const auto fit = static_cast<uint32_t>((GROUP_SIZE - next.fill) / BLOCK_SIZE);
    if (shape.lastBlock <= fit) {
      next.fill += static_cast<uint32_t>(shape.lastBlock * BLOCK_SIZE);
    } else {
      const uint32_t behind = shape.lastBlock - fit;
      next.group += 1 + (behind - 1) / BLOCKS_PER_GROUP;
      next.fill = static_cast<uint32_t>(((behind - 1) % BLOCKS_PER_GROUP + 1) * BLOCK_SIZE);
    }
    if (next.fill + shape.tailSize > GROUP_SIZE) next = {next.group + 1, 0};
    next.fill += shape.tailSize;
    count = next.group + 1;
  }
}

size_t GroupLayout::FirstFrom(uint32_t group) const {
  const auto first = std::lower_bound(starts.begin(), starts.end(), group,
                                      [](const Start& start, uint32_t wanted) { return start.group < wanted; });
  return static_cast<size_t>(first - starts.begin());
}

GroupLayout::Entry GroupLayout::EntryOf(size_t file, uint32_t group) const {
  const FileShape& shape = shapes[file];
  const Start& start = starts[file];
  const size_t fit = (GROUP_SIZE - start.fill) / BLOCK_SIZE;
  const uint32_t groupsBefore = group - start.group - 1;
  const uint64_t block = fit + uint64_t{groupsBefore} * BLOCKS_PER_GROUP;
  const size_t fillBefore = groupsBefore == 0 ? start.fill + fit * BLOCK_SIZE : BLOCKS_PER_GROUP * BLOCK_SIZE;
  const bool tailWasBefore = block == shape.lastBlock && fillBefore + shape.tailSize <= GROUP_SIZE;
  return {block, block <= shape.lastBlock && !tailWasBefore};
}

GroupRuns GroupLayout::Runs(uint32_t group) const {
  // The last file that begins before this group goes on in it, or ends before it; then the next one begins it.
  const size_t file = FirstFrom(group);
  const Entry entry = file > 0 ? EntryOf(file - 1, group) : Entry{};
  return entry.isIn ? GroupRuns(shapes, file - 1, entry.block) : GroupRuns(shapes, file, 0);
}

// All files but the last that begins in the group, or goes on in it, end in it.
size_t GroupLayout::BytesIn(uint32_t group) const {
  const size_t file = FirstFrom(group + 1) - 1;
  const FileShape& shape = shapes[file];
  const bool beginsHere = starts[file].group == group;
  const uint64_t block = beginsHere ? 0 : EntryOf(file, group).block;
  const size_t fill = beginsHere ? starts[file].fill : 0;
  const uint64_t full = std::min<uint64_t>(shape.lastBlock - block, (GROUP_SIZE - fill) / BLOCK_SIZE);
  const size_t end = fill + static_cast<size_t>(full) * BLOCK_SIZE;
  const bool hasTail = block + full == shape.lastBlock && end + shape.tailSize <= GROUP_SIZE;
  return hasTail ? end + shape.tailSize : end;
}

std::optional<BlockRun> GroupRuns::Next() {
  if (file == shapes->size()) return std::nullopt;
  const FileShape& shape = (*shapes)[file];
  const uint64_t full = std::min<uint64_t>(shape.lastBlock - block, (GROUP_SIZE - fill) / BLOCK_SIZE);
  const bool hasTail =
      block + full == shape.lastBlock && fill + static_cast<size_t>(full) * BLOCK_SIZE + shape.tailSize <= GROUP_SIZE;
  if (full == 0 && !hasTail) return std::nullopt;
  BlockRun run{static_cast<uint32_t>(file + 1), static_cast<uint32_t>(block), static_cast<uint32_t>(full), fill,
               static_cast<size_t>(full) * BLOCK_SIZE};
  if (hasTail) {
    ++run.count;
    run.size += shape.tailSize;
  }
  fill += run.size;
  block += full;
  if (hasTail) {
    ++file;
    block = 0;
  }
  return run;
}

}  // namespace quorl
