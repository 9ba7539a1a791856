// Every wait of the machine ends here: absolute deadlines on the monotonic clock, so that an interrupted wait goes on
// without getting longer.
#include "platform/posix/waiting.h"

#include <time.h>

#include <algorithm>
#include <cerrno>

namespace quorl {

using namespace std::chrono_literals;

namespace {

timespec ToTimespec(Duration duration) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  timespec result{};
  result.tv_sec = seconds.count();
  result.tv_nsec = (duration - seconds).count();
  return result;
}

}  // namespace

Moment MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

void SleepUntilMonotonic(Moment moment) {
  const timespec until = ToTimespec(std::max(moment, Moment::zero()));
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

Moment DeadlineAfter(Duration limit) {
  const Moment now = MonotonicNow();
  return limit >= FOREVER - now ? FOREVER : now + std::max(limit, Duration::zero());
}

bool PollUntil(std::span<pollfd> descriptors, Moment deadline) {
  while (true) {
    const timespec left = ToTimespec(std::max(deadline - MonotonicNow(), Duration::zero()));
    const int ready = ppoll(descriptors.data(), descriptors.size(), deadline == FOREVER ? nullptr : &left, nullptr);
    if (ready >= 0) return ready > 0;
    // Anything but a signal is a shortage of memory, which passes.
    if (errno != EINTR) SleepUntilMonotonic(MonotonicNow() + 1ms);
  }
}

}  // namespace quorl
