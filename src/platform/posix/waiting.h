#pragma once

#include <poll.h>

#include <span>

#include "platform/time.h"

namespace quorl {

Moment MonotonicNow();

/// Returns when the monotonic clock has reached `moment`, never earlier.
void SleepUntilMonotonic(Moment moment);

/// The moment `limit` from now; FOREVER when that is beyond what a moment can hold.
Moment DeadlineAfter(Duration limit);

/// True once one of `descriptors` is ready; false when the deadline has passed first.
bool PollUntil(std::span<pollfd> descriptors, Moment deadline);

}  // namespace quorl
