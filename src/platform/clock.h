#pragma once

#include "platform/time.h"

namespace quorl {

/// The machine's monotonic clock. Any thread may use it.
class Clock {
 public:
  virtual ~Clock() = default;

  virtual Moment Now() = 0;

  /// Returns when the clock has reached `moment`, never earlier.
  virtual void SleepUntil(Moment moment) = 0;

  void Sleep(Duration pause) { SleepUntil(Now() + pause); }
};

}  // namespace quorl
