// Time as the system counts it: nanoseconds on a machine's monotonic clock.
#pragma once

#include <chrono>

namespace quorl {

using Duration = std::chrono::nanoseconds;

/// A moment, as the time since some fixed start of the machine's clock.
using Moment = std::chrono::nanoseconds;

inline constexpr Duration FOREVER = Duration::max();

}  // namespace quorl
