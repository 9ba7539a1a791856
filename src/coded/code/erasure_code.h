// The erasure code (RFC 5052 for the terms): a group of source symbols, and repair symbols of which any e replace any e
// source symbols that are lacking. Repair symbol i is the sum of every source symbol j times 1 / (x_i + y_j), with
// x_i = 128 + i and y_j = j: a Cauchy matrix, every square part of which is regular.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quorl {

/// Source symbols of a group at most, and different repair symbols that there are for it. A symbol's index is below 128
/// for a source symbol, and 128 + i for repair symbol i.
inline constexpr size_t MOST_SOURCE_SYMBOLS = 128;
inline constexpr size_t MOST_REPAIR_SYMBOLS = 128;

/// One symbol in memory that somebody else owns.
struct Symbol {
  uint8_t index = 0;
  const uint8_t* bytes = nullptr;
};

/// Makes repair symbols of a group. `group`: its source symbols one behind the other; `indices`: 128 to 255 each;
/// `into`: where each goes. Several at once cost little more than one.
void EncodeSymbols(std::span<const uint8_t> group, size_t symbolSize, std::span<const uint8_t> indices,
                   std::span<uint8_t* const> into);

/// Fills in the source symbols that `group` lacks. `lacking`: their indices; `repair`: as many different repair
/// symbols.
void RecoverSymbols(std::span<uint8_t> group, size_t symbolSize, std::span<const uint8_t> lacking,
                    std::span<const Symbol> repair);

}  // namespace quorl
