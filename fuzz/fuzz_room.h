// What the targets share that run a whole sender or receiver on a simulated machine, in virtual time.
#pragma once

#include <vector>

#include "fuzz/fuzz_input.h"
#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sim/room/peer.h"

namespace quorl::fuzz {

using namespace std::chrono_literals;

constexpr uint32_t SENDER = Ipv4(10, 0, 0, 1);
constexpr Endpoint GROUP = RoomAddress{}.group;

/// A machine to be tested, and a room that says to it what the input wants.
struct FuzzRoom {
  FuzzRoom(Input input, uint32_t address) : input(input), machine(world.AddMachine("tested", address)) {
    world.SetLogging(false);
  }

  /// Its role has been torn down: nothing may be left.
  void CheckIsEmpty() {
    world.RunFor(6s);
    MUST(machine.RunningThreads() == 0 && machine.OpenSockets() == 0);
  }

  Input input;
  mutable sim::World world{1};
  sim::SimMachine& machine;
  sim::Peer room{world, "room", Ipv4(10, 0, 9, 9)};
  /// Of one, two and three blocks.
  const std::vector<sim::PeerFile> files{
      {"\\data\\a", 5, 0}, {"\\data\\b", BLOCK_SIZE, 1}, {"\\data\\sub\\c", 2 * BLOCK_SIZE + 1, 2}};
};

}  // namespace quorl::fuzz
