#pragma once

#include "platform/clock.h"
#include "platform/posix/waiting.h"

namespace quorl {

class PosixClock : public Clock {
 public:
  Moment Now() override { return MonotonicNow(); }
  void SleepUntil(Moment moment) override { SleepUntilMonotonic(moment); }
};

}  // namespace quorl
