// Nothing is thrown across the library's boundary.
#pragma once

#include <cstdint>
#include <exception>

namespace quorl {

/// What most functions return that have done nothing.
inline constexpr uint32_t FAILED = 0;

/// What `body` returns; `failure` when memory, or whatever else it needs, has run out.
template <typename Result, typename Body>
Result Guarded(Result failure, Body&& body) {
  try {
    return body();
  } catch (const std::exception&) {
    return failure;
  }
}

}  // namespace quorl
