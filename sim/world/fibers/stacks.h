#pragma once

#include <cstddef>
#include <span>

namespace quorl::sim {

/// A stack for a fiber, with an unusable page below it, so that an overflow stops the program where it happens. Stacks
/// that were given back are used again. Throws std::bad_alloc when the system has no more.
std::span<std::byte> TakeStack();
void GiveStackBack(std::span<std::byte> stack);

}  // namespace quorl::sim
