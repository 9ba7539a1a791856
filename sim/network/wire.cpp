#include "sim/network/wire.h"

#include <algorithm>

#include "protocol/wire_size.h"

namespace quorl::sim {

namespace {

Duration TimeFor(uint64_t bytes, uint64_t bytesPerSecond) {
  return Duration(static_cast<Duration::rep>(bytes * 1'000'000'000 / bytesPerSecond));
}

}  // namespace

std::optional<Moment> Wire::Pass(Moment now, size_t datagramBytes, const WireOptions& options) {
  if (options.bytesPerSecond == 0) return now;
  if (RoomAt(options) > now) return std::nullopt;
  free = std::max(free, now) + TimeFor(BytesOnWire(datagramBytes), options.bytesPerSecond);
  return free;
}

Moment Wire::RoomAt(const WireOptions& options) const {
  return options.bytesPerSecond == 0 ? Moment{0} : free - TimeFor(options.queueBytes, options.bytesPerSecond);
}

std::optional<Moment> Uplink::Pass(Moment now, size_t datagramBytes) {
  // A datagram of a call that found room is taken, as a whole.
  const Moment begins = std::max(now, own.RoomAt(options.own));
  const auto left = own.Pass(begins, datagramBytes, options.own);
  return left ? bottleneck.Pass(*left, datagramBytes, options.bottleneck) : std::nullopt;
}

}  // namespace quorl::sim
