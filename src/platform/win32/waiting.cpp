// Every wait of the machine ends here. The system wakes threads at its timer's ticks, 15.6 ms apart unless a program
// asks for finer ones, while the pauses of the stream are 10 and 25 ms. So the finest ticks are asked for as long as a
// short pause lasts, and no longer: they cost the whole machine power.
#include "platform/win32/waiting.h"

#include <algorithm>

#include "platform/win32/handle.h"

#include <timeapi.h>

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration SHORT_PAUSE = 200ms;
constexpr UINT FINEST_TICK_MS = 1;

// In the headers of newer systems only.
constexpr DWORD HIGH_RESOLUTION_TIMER = 0x00000002;

class FineTicks {
 public:
  explicit FineTicks(bool wanted) : held(wanted && timeBeginPeriod(FINEST_TICK_MS) == TIMERR_NOERROR) {}
  ~FineTicks() {
    if (held) timeEndPeriod(FINEST_TICK_MS);
  }
  FineTicks(const FineTicks&) = delete;
  FineTicks& operator=(const FineTicks&) = delete;

 private:
  const bool held;
};

/// A timer that does not depend on the ticks. Older systems have none.
bool PauseByTimer(HANDLE timer, Duration pause) {
  using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>;
  LARGE_INTEGER due{};
  due.QuadPart = -std::chrono::ceil<Ticks>(pause).count();  // Negative: from now on.
  return timer && SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE) &&
         WaitForSingleObject(timer, INFINITE) == WAIT_OBJECT_0;
}

int64_t CountsPerSecond() {
  static const int64_t frequency = [] {
    LARGE_INTEGER value{};
    QueryPerformanceFrequency(&value);
    return value.QuadPart;
  }();
  return frequency;
}

}  // namespace

Moment MonotonicNow() {
  LARGE_INTEGER counter{};
  QueryPerformanceCounter(&counter);
  // Seconds first: the product of the whole count would overflow after some days.
  const int64_t frequency = CountsPerSecond();
  return std::chrono::seconds(counter.QuadPart / frequency) +
         std::chrono::nanoseconds(counter.QuadPart % frequency * 1'000'000'000 / frequency);
}

void SleepUntilMonotonic(Moment moment) {
  if (moment <= MonotonicNow()) return;
  const FineTicks ticks(moment - MonotonicNow() < SHORT_PAUSE);
  const Handle timer(CreateWaitableTimerExW(nullptr, nullptr, HIGH_RESOLUTION_TIMER, TIMER_ALL_ACCESS));
  for (Duration left = moment - MonotonicNow(); left > 0ns; left = moment - MonotonicNow())
    if (!PauseByTimer(timer.Get(), left)) ::Sleep(MillisecondsUntil(moment));
}

Moment DeadlineAfter(Duration limit) {
  const Moment now = MonotonicNow();
  return limit >= FOREVER - now ? FOREVER : now + std::max(limit, Duration::zero());
}

uint32_t MillisecondsUntil(Moment deadline) {
  if (deadline == FOREVER) return INFINITE;
  constexpr int64_t LONGEST = 86'400'000;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - MonotonicNow()).count();
  return static_cast<uint32_t>(std::clamp<int64_t>(left, 0, LONGEST));
}

}  // namespace quorl
