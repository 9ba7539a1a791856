#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/time.h"

namespace quorl {

/// When the next datagram of a run may leave. Decisions only; the caller reads the clock and waits.
class Pacer {
 public:
  /// `kilobitsPerSecond` counts every byte on the wire; 0 is the system's own fixed pacing: 25 ms before every datagram
  /// but the first, or when every receiver is fast, 10 ms before the 3rd, the 5th, the 7th and so on.
  explicit Pacer(uint32_t kilobitsPerSecond) : rate(kilobitsPerSecond) {}

  /// Another rate from the next datagram on; with the fixed pacing, and to it, there is no change.
  void ChangeRate(uint32_t kilobitsPerSecond);

  /// The moment before which the next datagram must not leave; nothing when it may leave at once. To be asked once for
  /// each datagram. `fastPacing` matters to the fixed pacing only and may change from one datagram to the next.
  std::optional<Moment> NextSend(bool fastPacing);

  /// How many datagrams of `length` bytes may leave one right after the other when one may: what a rate takes a
  /// millisecond for, `most` at most. With the fixed pacing each waits for its own moment.
  size_t Burst(size_t length, size_t most) const;

  /// A datagram of `length` bytes has left at `now`.
  void Sent(Moment now, size_t length);

 private:
  Duration TimeOnWire(size_t length) const;

  uint32_t rate;
  Moment lastSent{};
  uint32_t sentSincePause = 0;
  std::optional<Moment> schedule;  ///< With a rate: when the next datagram is due.
};

}  // namespace quorl
