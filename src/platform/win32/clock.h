#pragma once

#include "platform/clock.h"
#include "platform/win32/waiting.h"

namespace quorl {

class Win32Clock : public Clock {
 public:
  Moment Now() override { return MonotonicNow(); }
  void SleepUntil(Moment moment) override { SleepUntilMonotonic(moment); }
};

}  // namespace quorl
