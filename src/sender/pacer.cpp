// Pacing of the stream. A pause counts from the moment the previous datagram left, so that reading the next block
// happens within it and not on top of it.
//
// With a rate each datagram has a place in a schedule, as long after the one before as that takes on the wire. A thread
// that comes late may catch up by sending at once what is overdue, but no more than fits into 2 ms: what switches and
// receive buffers hold without loss. The rest of the delay is given up.
#include "sender/pacer.h"

#include <algorithm>

#include "protocol/wire_size.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration SLOW_PAUSE = 25ms;
constexpr Duration FAST_PAUSE = 10ms;
constexpr uint32_t SLOW_RUN = 1;  ///< Datagrams between two pauses.
constexpr uint32_t FAST_RUN = 2;
constexpr Duration BURST = 2ms;
constexpr Duration LONGEST_BURST = 1ms;

}  // namespace

void Pacer::ChangeRate(uint32_t kilobitsPerSecond) {
  if (rate != 0 && kilobitsPerSecond != 0) rate = kilobitsPerSecond;
}

std::optional<Moment> Pacer::NextSend(bool fastPacing) {
  if (rate != 0) return schedule;
  if (sentSincePause < (fastPacing ? FAST_RUN : SLOW_RUN)) return std::nullopt;
  sentSincePause = 0;
  return lastSent + (fastPacing ? FAST_PAUSE : SLOW_PAUSE);
}

size_t Pacer::Burst(size_t length, size_t most) const {
  if (rate == 0) return 1;
  return std::clamp<size_t>(static_cast<size_t>(LONGEST_BURST / TimeOnWire(length)), 1, most);
}

void Pacer::Sent(Moment now, size_t length) {
  lastSent = now;
  ++sentSincePause;
  if (rate == 0) return;
  const Duration onWire = TimeOnWire(length);
  const Duration backlog = std::max(BURST - onWire, Duration::zero());
  schedule = std::max(schedule.value_or(now), now - backlog) + onWire;
}

Duration Pacer::TimeOnWire(size_t length) const {
  const uint64_t bits = uint64_t{BytesOnWire(length)} * 8;
  // Bits divided by kbit/s are milliseconds. Rounded up: never faster than the rate.
  return Duration((bits * 1'000'000 + rate - 1) / rate);
}

}  // namespace quorl
