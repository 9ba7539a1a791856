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

std::vector<BlockPlace> GroupLayout::Blocks(uint32_t group) const {
  // The last file that begins before this group goes on in it, or ends before it; then the next one begins it.
  const auto behind = std::lower_bound(starts.begin(), starts.end(), group,
                                       [](const Start& start, uint32_t wanted) { return start.group < wanted; });
  auto file = static_cast<size_t>(behind - starts.begin());
  uint64_t block = 0;
  if (file > 0) {
    const FileShape& shape = shapes[file - 1];
    const Start& start = starts[file - 1];
    const size_t fit = (GROUP_SIZE - start.fill) / BLOCK_SIZE;
    const uint32_t groupsBefore = group - start.group - 1;
    const uint64_t first = fit + uint64_t{groupsBefore} * BLOCKS_PER_GROUP;
    const size_t fillBefore = groupsBefore == 0 ? start.fill + fit * BLOCK_SIZE : BLOCKS_PER_GROUP * BLOCK_SIZE;
    const bool tailWasBefore = first == shape.lastBlock && fillBefore + shape.tailSize <= GROUP_SIZE;
    if (first <= shape.lastBlock && !tailWasBefore) {
      --file;
      block = first;
    }
  }
  std::vector<BlockPlace> places;
  for (size_t fill = 0; file < shapes.size();) {
    const size_t size = shapes[file].BytesInBlock(static_cast<uint32_t>(block));
    if (fill + size > GROUP_SIZE) break;
    places.push_back({static_cast<uint32_t>(file + 1), static_cast<uint32_t>(block), fill, size});
    fill += size;
    if (block++ == shapes[file].lastBlock) {
      ++file;
      block = 0;
    }
  }
  return places;
}

}  // namespace quorl
