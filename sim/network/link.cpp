// The model of a link. What concerns time is decided when a datagram is sent, in the order of the parts that it would
// pass: the queue before the wire, the wire, the way. Whether it is lost is decided when it would arrive.
#include "sim/network/link.h"

#include <algorithm>
#include <utility>

#include "protocol/datagrams.h"

namespace quorl::sim {

namespace {

constexpr size_t UDP_HEADER = 8;
constexpr size_t FRAGMENT_DATA = 1480;  ///< At the MTU of Ethernet, 1500.

size_t Fragments(size_t datagramBytes) {
  return (datagramBytes + UDP_HEADER + FRAGMENT_DATA - 1) / FRAGMENT_DATA;
}

/// Up to and including `most`.
Duration Draw(Duration most, Random& random) {
  if (most <= Duration::zero()) return Duration::zero();
  return Duration(static_cast<Duration::rep>(random.Below(static_cast<uint64_t>(most.count()) + 1)));
}

}  // namespace

const char* ToText(Fate fate) {
  constexpr std::array<const char*, static_cast<size_t>(Fate::COUNT)> TEXTS = {"delivered",
                                                                               "lost by chance",
                                                                               "lost by the mask",
                                                                               "lost in a burst",
                                                                               "lost for its command",
                                                                               "lost with its call",
                                                                               "cut off",
                                                                               "filtered",
                                                                               "queue full",
                                                                               "overflowed",
                                                                               "copied",
                                                                               "overtaken"};
  return TEXTS[static_cast<size_t>(fate)];
}

bool Happens(double probability, Random& random) {
  return probability > 0 && random.Fraction() < probability;
}

bool LinkOptions::IsPlain() const {
  return jitter == Duration::zero() && reorder == 0 && duplicate == 0 && !hasFragments && lossMask == 0 && burst == 0 &&
         lostCommands == 0 && lossOfCalls == 0 && wire.bytesPerSecond == 0 && hungUntil == Moment{0};
}

bool Link::LosesCall(uint64_t call, Random& random) {
  if (options.lossOfCalls == 0 || call == 0) return false;
  if (std::exchange(latestCall, call) != call) losesLatestCall = Happens(options.lossOfCalls, random);
  return losesLatestCall;
}

std::vector<Moment> Link::Arrivals(Moment now, size_t datagramBytes, Random& random) {
  const auto left = wire.Pass(std::max(now, options.hungUntil), datagramBytes, options.wire);
  if (!left) return {};
  const Moment inOrder = std::max(latestArrival, *left + options.delay + Draw(options.jitter, random));
  std::vector<Moment> arrivals;
  if (Happens(options.reorder, random)) {
    arrivals.push_back(inOrder + Draw(options.heldBack, random));
  } else {
    arrivals.push_back(latestArrival = inOrder);
  }
  if (Happens(options.duplicate, random)) arrivals.push_back(inOrder + Draw(options.heldBack, random));
  return arrivals;
}

Fate Link::FateOf(std::span<const uint8_t> datagram, Random& random) {
  const uint64_t number = count++;
  if ((options.lossMask >> number % 64 & 1) != 0) return Fate::LostByMask;
  if (LosesInBurst(random)) return Fate::LostInBurst;
  const size_t chances = options.hasFragments ? Fragments(datagram.size()) : 1;
  for (size_t i = 0; i < chances; ++i)
    if (Happens(options.loss, random)) return Fate::LostByChance;
  if (options.lostCommands == 0 || datagram.size() < HEADER_SIZE || datagram[2] >= 32) return Fate::Delivered;
  const bool isMeant = (options.lostCommands & CommandBit(datagram[2])) != 0;
  return isMeant && Happens(options.commandLoss, random) ? Fate::LostByCommand : Fate::Delivered;
}

bool Link::LosesInBurst(Random& random) {
  if (burstLeft == 0 && Happens(options.burst, random)) burstLeft = 1 + random.Below(options.burstLength);
  if (burstLeft == 0) return false;
  --burstLeft;
  return true;
}

}  // namespace quorl::sim
