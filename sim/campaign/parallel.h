#pragma once

#include <cstdint>
#include <functional>

namespace quorl::sim {

/// Calls `work` with 0, 1, 2, ... as long as `isOver` does not hold for the number, in so many threads of the operating
/// system. Returns when all of it is done.
void ForEachNumber(unsigned threads, const std::function<bool(uint64_t number)>& isOver,
                   const std::function<void(uint64_t number)>& work);

}  // namespace quorl::sim
