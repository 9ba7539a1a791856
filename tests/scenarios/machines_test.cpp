// Machines that stand still, come back, or have little room for what arrives.
#include <gtest/gtest.h>

#include <utility>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

TEST(Machines, AMasterThatIsFrozenForHalfAMinuteHoldsNobodyUpForLong) {
  Room room(Robust(3));
  room.File("a", 39 * BLOCK_SIZE + 1);
  // Each misses two blocks of its own; the first to ask for one freezes.
  room.Net().SetFilter([&, frozen = false](const Transit& transit) mutable {
    if (Is(transit, CMD_ACK) && !std::exchange(frozen, true)) room.Receiver(0).Freeze();
    for (size_t i = 0; i < 3; ++i)
      if (transit.to == &room.Receiver(i) && Is(transit, CMD_DATA) && HeadOf(transit).block % 16 == 3 * i) return false;
    return true;
  });
  Begin(room);
  const auto othersAreComplete = [&] { return room.WasToldComplete(1) && room.WasToldComplete(2); };
  EXPECT_TRUE(room.World().RunUntil(othersAreComplete, 10s));
  room.World().RunFor(30s);
  room.Receiver(0).Thaw();
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "holes 1460, whole told, whole told");
}

TEST(Machines, ASenderThatCrashesAndComesBackSendsToWhoHasLostIt) {
  Room room(Robust(2));
  room.File("a", 100 * BLOCK_SIZE);
  Begin(room, 100ms);
  room.Sender().PowerOff();
  ASSERT_TRUE(room.RunUntilQuiet(30s));
  EXPECT_EQ(Room::Statuses(room.Receiver(0)), std::vector<uint32_t>{QUORL_STATUS_SENDER_LOST});
  room.World().RunFor(1h);
  room.RestartSender();
  ASSERT_TRUE(room.Send());
  EXPECT_TRUE(room.World().RunUntil([&] { return room.WasToldComplete(0) && room.WasToldComplete(1); }, 30s));
  EXPECT_TRUE(room.RunUntilQuiet(30s));
  EXPECT_EQ(Ends(room), "whole told, whole told");
}

TEST(Machines, ASenderThatComesBackAndIsLostAgain) {
  Room room(Robust(1));
  room.File("a", 100 * BLOCK_SIZE);
  Begin(room);
  room.Net().Partition({&room.Sender()});
  room.World().RunFor(40s);
  room.Net().Partition({});
  room.Sender().Call([&] { room.Server().StartSend(); });
  room.World().RunFor(50ms);
  EXPECT_EQ(room.Client(0).GetState().phase, ReceivePhase::Receiving);
  room.Sender().PowerOff();
  EXPECT_TRUE(room.RunUntilQuiet(40s)) << "nobody told it that the second transfer is over";
  EXPECT_EQ(Room::Statuses(room.Receiver(0)),
            (std::vector<uint32_t>{QUORL_STATUS_SENDER_LOST, QUORL_STATUS_SENDER_LOST}));
}

TEST(Machines, WhatAReceiveBufferCannotHoldWhileAMachineStandsStillIsRepaired) {
  for (const size_t buffer : {size_t{1} << 20, size_t{512}}) {
    Room room(Robust(1));
    room.File("a", 100 * BLOCK_SIZE);
    room.Receiver(0).LimitReceiveBuffers(buffer);
    Begin(room, 100ms);
    room.Receiver(0).Freeze();
    room.World().RunFor(300ms);
    room.Receiver(0).Thaw();
    ASSERT_TRUE(room.RunUntilQuiet(60s));
    EXPECT_EQ(Ends(room), "whole told");
    EXPECT_EQ(CountSent(room, CMD_RESEND) > 0, buffer == 512) << buffer;
  }
}

}  // namespace
}  // namespace quorl::sim
