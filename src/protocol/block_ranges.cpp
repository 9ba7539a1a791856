// Which blocks a host says that are there already, on either side.
#include "protocol/block_ranges.h"

#include <algorithm>

namespace quorl {

bool BlockRanges::Take(const std::vector<BlockRange>& ranges) {
  files.clear();
  for (const BlockRange& range : ranges) {
    const auto last = files.empty() ? files.end() : std::prev(files.end());
    const bool isLater = last == files.end() || range.file > last->first ||
                         (range.file == last->first && range.first >= last->second.back().End());
    if (range.file == 0 || range.count == 0 || !isLater) {
      files.clear();
      return false;
    }
    files[range.file].push_back(range);
  }
  return true;
}

bool BlockRanges::Has(uint32_t file, uint32_t block) const {
  const auto found = files.find(file);
  if (found == files.end()) return false;
  const auto& ranges = found->second;
  const auto after = std::upper_bound(ranges.begin(), ranges.end(), block,
                                      [](uint32_t wanted, const BlockRange& range) { return wanted < range.first; });
  return after != ranges.begin() && block < std::prev(after)->End();
}

uint64_t BlockRanges::CountOf(uint32_t file, uint64_t blocks) const {
  const auto found = files.find(file);
  uint64_t count = 0;
  if (found == files.end()) return count;
  for (const BlockRange& range : found->second)
    if (range.first < blocks) count += std::min(range.End(), blocks) - range.first;
  return count;
}

}  // namespace quorl
