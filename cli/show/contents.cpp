#include "cli/show/contents.h"

#include <quorl/quorl.h>

#include <algorithm>

namespace quorl::cli {

void Contents::Add(uint64_t bytes, uint64_t blocks) {
  before.push_back(total);
  total = {total.blocks + blocks, total.bytes + bytes};
}

uint64_t Contents::BytesIn(uint64_t blocks) const {
  if (blocks >= total.blocks) return total.bytes;
  const auto next = std::upper_bound(before.begin(), before.end(), blocks,
                                     [](uint64_t count, const Amount& amount) { return count < amount.blocks; });
  const Amount& current = *(next - 1);
  const uint64_t end = next == before.end() ? total.bytes : next->bytes;
  return std::min(end, current.bytes + (blocks - current.blocks) * uint64_t{QUORL_BLOCK_SIZE});
}

}  // namespace quorl::cli
