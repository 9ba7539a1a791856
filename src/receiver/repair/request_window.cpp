// The window of requests. It grows with each answer, so that the repair goes as fast as the sender serves it, however
// long the way; and it shrinks when nothing comes any more. A single answer that is lost is no reason to: what limits
// the pace is the sender's rate.
#include "receiver/repair/request_window.h"

#include <algorithm>

namespace quorl {

namespace {

// A sender serves requests in order. As many later answers show that one is lost and not only overtaken on the way.
constexpr int OVERTAKEN = 3;

}  // namespace

bool RequestWindow::Holds(LostBlock block) const {
  return std::any_of(requests.begin(), requests.end(), [&](const Request& request) { return request.block == block; });
}

void RequestWindow::Answered(Moment now, LostBlock block) {
  const auto answered =
      std::find_if(requests.begin(), requests.end(), [&](const Request& request) { return request.block == block; });
  if (answered == requests.end()) return;
  // The answer to a repeated request may belong to either of its datagrams: it measures nothing (Karn's rule).
  if (answered->times == 1) Measure(now - answered->madeAt);
  for (auto earlier = requests.begin(); earlier != answered; ++earlier) ++earlier->overtaken;
  requests.erase(answered);
  answeredAt = now;
  size = std::min(size + 1, MOST);
}

std::optional<LostBlock> RequestWindow::RepeatLate(Moment now) {
  while (true) {
    const auto late = std::find_if(requests.begin(), requests.end(), [&](const Request& request) {
      return IsOvertaken(request) || now - request.madeAt >= timeout;
    });
    if (late == requests.end()) return std::nullopt;
    const Request request = *late;
    requests.erase(late);
    if (!IsOvertaken(request)) BackOff(now, request);
    if (request.times >= TIMES && answeredAt > request.firstMadeAt) continue;
    requests.push_back({request.block, now, request.firstMadeAt, request.times + 1});
    return request.block;
  }
}

std::optional<Moment> RequestWindow::Due() const {
  std::optional<Moment> due;
  for (const Request& request : requests) {
    const Moment late = IsOvertaken(request) ? request.madeAt : request.madeAt + timeout;
    due = std::min(due.value_or(late), late);
  }
  return due;
}

bool RequestWindow::IsOvertaken(const Request& request) const {
  return request.overtaken >= OVERTAKEN;
}

// Once for all requests that were made before the last time.
void RequestWindow::BackOff(Moment now, const Request& late) {
  if (late.madeAt < backedOffAt) return;
  backedOffAt = now;
  if (now - answeredAt >= timeout) size = std::max<size_t>(size / 2, 1);
  timeout = std::min(timeout * 2, LONGEST);
}

void RequestWindow::Measure(Duration roundTrip) {
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
