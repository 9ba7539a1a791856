#include "receiver/request_timer.h"

#include <algorithm>

namespace quorl {

void RequestTimer::Sent(Moment now, LostBlock wanted) {
  const bool repeated = outstanding && outstanding->wanted == wanted;
  if (repeated) timeout = std::min(timeout * 2, LONGEST);
  outstanding = Request{wanted, now, repeated};
}

void RequestTimer::Answered(Moment now, LostBlock block) {
  if (!outstanding || outstanding->wanted != block) return;
  // The answer to a repeated request may belong to either of its datagrams: it measures nothing (Karn's rule).
  if (!outstanding->repeated) Measure(now - outstanding->sentAt);
  outstanding.reset();
}

std::optional<Moment> RequestTimer::Due() const {
  if (!outstanding) return std::nullopt;
  return outstanding->sentAt + timeout;
}

void RequestTimer::Measure(Duration roundTrip) {
  if (smoothed) {
    const Duration error = *smoothed > roundTrip ? *smoothed - roundTrip : roundTrip - *smoothed;
    variation = (3 * variation + error) / 4;
    smoothed = (7 * *smoothed + roundTrip) / 8;
  } else {
    smoothed = roundTrip;
    variation = roundTrip / 2;
  }
  timeout = std::clamp(*smoothed + 4 * variation, SHORTEST, LONGEST);
}

}  // namespace quorl
