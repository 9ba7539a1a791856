#include "receiver/blocks/block_bits.h"

#include <algorithm>
#include <bit>

namespace quorl {

namespace {

constexpr uint32_t WORD_BITS = 64;
constexpr uint64_t FULL = UINT64_MAX;

constexpr uint64_t MaskOf(uint32_t block) {
  return uint64_t{1} << (block % WORD_BITS);
}

}  // namespace

bool BlockBits::Set(uint32_t block) {
  const size_t word = block / WORD_BITS;
  if (word >= words.size()) words.resize(word + 1);
  if (words[word] & MaskOf(block)) return false;
  words[word] |= MaskOf(block);
  ++count;
  emptyWords = std::min(emptyWords, word);
  return true;
}

bool BlockBits::Clear(uint32_t block) {
  if (!Test(block)) return false;
  const size_t word = block / WORD_BITS;
  words[word] &= ~MaskOf(block);
  --count;
  fullWords = std::min(fullWords, word);
  return true;
}

bool BlockBits::Test(uint32_t block) const {
  const size_t word = block / WORD_BITS;
  return word < words.size() && (words[word] & MaskOf(block)) != 0;
}

std::optional<uint32_t> BlockBits::FirstSet() const {
  while (emptyWords < words.size() && words[emptyWords] == 0) ++emptyWords;
  if (emptyWords == words.size()) return std::nullopt;
  return static_cast<uint32_t>(emptyWords * WORD_BITS) + static_cast<uint32_t>(std::countr_zero(words[emptyWords]));
}

uint64_t BlockBits::FirstClear(uint32_t from) const {
  while (fullWords < words.size() && words[fullWords] == FULL) ++fullWords;
  size_t word = from / WORD_BITS;
  uint64_t below = (uint64_t{1} << (from % WORD_BITS)) - 1;
  if (word < fullWords) {
    word = fullWords;
    below = 0;
  }
  for (; word < words.size(); ++word, below = 0)
    if (const uint64_t bits = words[word] | below; bits != FULL)
      return uint64_t{word} * WORD_BITS + static_cast<uint64_t>(std::countr_one(bits));
  return std::max(uint64_t{from}, uint64_t{words.size()} * WORD_BITS);
}

}  // namespace quorl
