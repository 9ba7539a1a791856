#include "sim/scale.h"

#include <chrono>
#include <cstdio>

#include "protocol/blocks.h"
#include "sim/tally.h"

namespace quorl::sim {

using namespace std::chrono_literals;

bool RunScale(Profile profile) {
  constexpr Duration LONGEST_TRANSFER = 3600s;
  constexpr size_t RECEIVERS = 200;
  constexpr uint64_t BLOCKS = 10'000;
  const auto start = std::chrono::steady_clock::now();
  Room room({RECEIVERS, 1, profile, profile});
  room.World().SetLogging(false);
  room.Net().SetLoss(0.01);
  room.File("big", BLOCKS * BLOCK_SIZE - 1);
  const bool started = room.StartReceivers() && room.Send();
  const bool quiet = started && room.RunUntilQuiet(LONGEST_TRANSFER);
  const Tally tally = Judge(room, quiet, room.World().Now());
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf(
      "%s: %zu receivers, %llu blocks, 1 %% loss: %llu complete after %.0f s of virtual time; %llu datagrams sent, "
      "%llu "
      "delivered or lost, in %.1f s of real time: %.0f deliveries a second\n",
      profile == Profile::Classic ? "classic" : "robust", RECEIVERS, static_cast<unsigned long long>(BLOCKS),
      static_cast<unsigned long long>(tally.complete), std::chrono::duration<double>(room.World().Now()).count(),
      static_cast<unsigned long long>(tally.datagrams), static_cast<unsigned long long>(tally.deliveries), seconds,
      static_cast<double>(tally.deliveries) / seconds);
  std::fflush(stdout);
  return quiet && (profile == Profile::Classic || tally.complete == RECEIVERS);
}

}  // namespace quorl::sim
