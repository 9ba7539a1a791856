#include "receiver/lost_map.h"

#include <algorithm>

namespace quorl {

std::array<char, PAD_DIGITS> PadNumber(uint32_t number) {
  std::array<char, PAD_DIGITS> text{};
  for (auto digit = text.rbegin(); digit != text.rend(); ++digit) {
    *digit = static_cast<char>('0' + number % 10);
    number /= 10;
  }
  return text;
}

BlockKey blockKey(LostBlock block) {
  BlockKey key{};
  const auto file = PadNumber(block.file);
  const auto number = PadNumber(block.block);
  std::copy(number.begin(), number.end(), std::copy(file.begin(), file.end(), key.begin()));
  return key;
}

bool LostMap::Enter(LostBlock block) {
  if (lostMap.size() >= LIMIT) return Contains(block);
  lostMap.emplace(blockKey(block), block);
  return true;
}

bool LostMap::Remove(LostBlock block) {
  return lostMap.erase(blockKey(block)) > 0;
}

void LostMap::RemoveFile(uint32_t file) {
  lostMap.erase(lostMap.lower_bound(blockKey({file, 0})), lostMap.upper_bound(blockKey({file, UINT32_MAX})));
}

std::optional<LostBlock> LostMap::First() const {
  if (lostMap.empty()) return std::nullopt;
  return lostMap.begin()->second;
}

}  // namespace quorl
