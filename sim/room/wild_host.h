#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "sim/room/room.h"
#include "sim/world/random.h"

namespace quorl::sim {

/// A host that calls what its role offers in any order, from two threads at once. What it does follows from its seed.
/// What it selects and announces is right all the same, so that completion still means what it says. Lives as long as
/// the room's world runs.
class WildHost {
 public:
  /// Of a receiver, or of the sender.
  WildHost(Room& room, std::optional<size_t> receiver, uint64_t seed);

  void Begin();

  /// Lets the world run until its threads have come back from what they call, and have ended.
  void End();

 private:
  void Run(uint64_t seed);
  void CallReceiver(Random& random);
  void CallSender(Random& random);

  Room& room;
  const std::optional<size_t> receiver;
  const uint64_t seed;
  SimMachine& machine;
  std::atomic<bool> over = false;
  std::atomic<int> running = 0;
};

}  // namespace quorl::sim
