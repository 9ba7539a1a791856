#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/time.h"
#include "sim/network/wire.h"
#include "sim/world/random.h"

namespace quorl::sim {

/// What one direction between two machines does to the datagrams on it. At first: nothing but a short delay.
struct LinkOptions {
  Duration delay = std::chrono::microseconds(100);
  Duration jitter{0};    ///< Up to so much more, drawn for each datagram; keeps their order.
  double reorder = 0;    ///< Probability that a datagram takes `heldBack` longer, so that later ones overtake it.
  double duplicate = 0;  ///< Probability that a datagram arrives twice; the copy is held back too.
  Duration heldBack = std::chrono::milliseconds(40);

  double loss = 0;            ///< Probability that a datagram is lost.
  bool hasFragments = false;  ///< `loss` is that of each Ethernet fragment; one lost fragment loses the datagram.
  uint64_t lossMask = 0;      ///< Bit n: the datagrams n, n + 64, n + 128, ... of this link are lost.
  double burst = 0;           ///< Probability that a run of losses begins with a datagram.
  uint32_t burstLength = 8;   ///< Datagrams that such a run takes at most; drawn.
  uint32_t lostCommands = 0;  ///< Bit n: datagrams with command code n are subject to `commandLoss`.
  double commandLoss = 1;

  double lossOfCalls = 0;  ///< Probability that all datagrams that left with one call are lost together.

  WireOptions wire{};   ///< Of this direction alone.
  Moment hungUntil{0};  ///< What is sent before this moment arrives only after it.

  /// Whether datagrams pass it independently of each other, all after the same delay.
  bool IsPlain() const;
};

/// What became of a datagram on its way to a socket, or of its copy.
enum class Fate {
  Delivered,
  LostByChance,
  LostByMask,
  LostInBurst,
  LostByCommand,
  LostTogether,  ///< With all that left with the same call.
  CutOff,        ///< Between two sides of a partition.
  Filtered,      ///< By a test.
  QueueFull,     ///< Before the wire.
  Overflowed,    ///< No room in the receive buffer.
  Copied,        ///< Arrives twice.
  Overtaken,     ///< Arrives after one that was sent later.
  COUNT
};

const char* ToText(Fate fate);

/// The state of one such direction.
class Link {
 public:
  explicit Link(const LinkOptions& options) : options(options) {}

  void SetOptions(const LinkOptions& newOptions) { options = newOptions; }

  /// Whether the call in which a datagram is sent now is lost: cut into datagrams only where they arrive, it is one
  /// packet on its way. 0 stands for a call of its own.
  bool LosesCall(uint64_t call, Random& random);

  /// When a datagram that is sent now arrives; two moments when it is duplicated, none when the queue is full.
  std::vector<Moment> Arrivals(Moment now, size_t datagramBytes, Random& random);

  /// Whether a datagram that would arrive now does.
  Fate FateOf(std::span<const uint8_t> datagram, Random& random);

 private:
  bool LosesInBurst(Random& random);

  LinkOptions options;
  uint64_t count = 0;      ///< Datagrams that came to their end.
  uint64_t burstLeft = 0;  ///< Losses that are left of the run.
  uint64_t latestCall = 0;
  bool losesLatestCall = false;
  Wire wire;
  Moment latestArrival{0};
};

/// True with the given probability; draws nothing when that is 0.
bool Happens(double probability, Random& random);

/// A command as a bit of LinkOptions::lostCommands.
constexpr uint32_t CommandBit(uint8_t command) {
  return uint32_t{1} << command;
}

}  // namespace quorl::sim
