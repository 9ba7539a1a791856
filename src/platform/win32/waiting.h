#pragma once

#include <cstdint>

#include "platform/time.h"

namespace quorl {

Moment MonotonicNow();

/// Returns when the monotonic clock has reached `moment`, never earlier.
void SleepUntilMonotonic(Moment moment);

/// The moment at which a wait of `limit` ends, from now on; FOREVER stays FOREVER.
Moment DeadlineAfter(Duration limit);

/// What is left until `deadline`, as the system's wait functions take it: whole milliseconds, rounded up. A long wait
/// gets a part of it, so whoever waits asks again.
uint32_t MillisecondsUntil(Moment deadline);

}  // namespace quorl
