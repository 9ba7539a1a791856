#pragma once

#include <compare>
#include <cstdint>

namespace quorl {

/// One block of a transfer, mostly one that is missing. In the order of file and block.
struct LostBlock {
  uint32_t file = 0;
  uint32_t block = 0;

  friend auto operator<=>(const LostBlock&, const LostBlock&) = default;
};

}  // namespace quorl
