#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/time.h"

namespace quorl::sim {

/// A wire that carries one datagram after the other, and the queue in front of it. Exact: what has left at a moment
/// follows from what has come before, whoever asks when.
struct WireOptions {
  uint64_t bytesPerSecond = 0;       ///< Framing included; 0: unlimited.
  uint64_t queueBytes = 256 * 1024;  ///< While more waits, what comes is lost.
};

class Wire {
 public:
  /// When a datagram has left that comes now; nothing when the queue is full.
  std::optional<Moment> Pass(Moment now, size_t datagramBytes, const WireOptions& options);

  /// From when on the queue has room.
  Moment RoomAt(const WireOptions& options) const;

 private:
  Moment free{0};
};

/// What everything that a machine sends to others passes before the ways to them part: its own link, in front of which
/// a send waits for room, and behind that one a narrower one, which loses what its queue has no room for.
class Uplink {
 public:
  struct Options {
    WireOptions own{};
    WireOptions bottleneck{};
  };

  explicit Uplink(const Options& options) : options(options) {}

  /// From when on a send need not wait.
  Moment RoomAt() const { return own.RoomAt(options.own); }
  /// When a datagram that is sent now has passed both; nothing when it is lost.
  std::optional<Moment> Pass(Moment now, size_t datagramBytes);

 private:
  Options options;
  Wire own;
  Wire bottleneck;
};

}  // namespace quorl::sim
