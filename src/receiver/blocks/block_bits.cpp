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
  const uint32_t word = block / WORD_BITS;
  if (word >= Words()) further.resize(word);
  if (Word(word) & MaskOf(block)) return false;
  Word(word) |= MaskOf(block);
  ++count;
  emptyWords = std::min(emptyWords, word);
  return true;
}

bool BlockBits::Clear(uint32_t block) {
  if (!Test(block)) return false;
  const uint32_t word = block / WORD_BITS;
  Word(word) &= ~MaskOf(block);
  --count;
  fullWords = std::min(fullWords, word);
  return true;
}

bool BlockBits::Test(uint32_t block) const {
  const size_t word = block / WORD_BITS;
  return word < Words() && (Word(word) & MaskOf(block)) != 0;
}

std::optional<uint32_t> BlockBits::FirstSet() const {
  while (emptyWords < Words() && Word(emptyWords) == 0) ++emptyWords;
  if (emptyWords == Words()) return std::nullopt;
  return emptyWords * WORD_BITS + static_cast<uint32_t>(std::countr_zero(Word(emptyWords)));
}

uint64_t BlockBits::FirstClear(uint32_t from) const {
  while (fullWords < Words() && Word(fullWords) == FULL) ++fullWords;
  size_t word = from / WORD_BITS;
  uint64_t below = (uint64_t{1} << (from % WORD_BITS)) - 1;
  if (word < fullWords) {
    word = fullWords;
    below = 0;
  }
  for (; word < Words(); ++word, below = 0)
    if (const uint64_t bits = Word(word) | below; bits != FULL)
      return uint64_t{word} * WORD_BITS + static_cast<uint64_t>(std::countr_one(bits));
  return std::max(uint64_t{from}, uint64_t{Words()} * WORD_BITS);
}

}  // namespace quorl
