// Hosts that are slow, call back, call in any order, or never stop.
#include <gtest/gtest.h>

#include "sim/sanitizers.h"
#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

const RoomOptions WITH_AUTO_OPEN{1, 1, Profile::Robust, Profile::Robust, "\\a"};

TEST(Hosts, OneThatBlocksForAMinuteAtEachMessageHoldsNothingUp) {
  Room room(WITH_AUTO_OPEN);
  room.File("a", 20 * BLOCK_SIZE);
  room.HandleMessages(0, [&](uint32_t, uintptr_t, intptr_t) { room.Receiver(0).Seam().clock.Sleep(60s); });
  room.HandleSenderMessages([&](uint32_t, uintptr_t, intptr_t) { room.Sender().Seam().clock.Sleep(60s); });
  Play(room, 10s);
  EXPECT_EQ(Ends(room), "whole told");
  const Moment before = room.World().Now();
  room.Receiver(0).Call([&] { room.Client(0).DeInitClient(); });
  EXPECT_LE(room.World().Now() - before, 5100ms);
}

TEST(Hosts, OneThatEndsTheReceiverAndItsWindowFromWithinTheWindow) {
  Room room(WITH_AUTO_OPEN);
  room.File("a", 20 * BLOCK_SIZE);
  room.HandleMessages(0, [&](uint32_t message, uintptr_t, intptr_t) {
    room.Client(0).GetState();
    if (message != WM_TRANS_STATUS) return;
    room.Client(0).DeInitClient();
    room.Receiver(0).DestroyWindow(room.ReceiverWindow(0));
  });
  Play(room);
  room.World().RunFor(10s);
  EXPECT_EQ(Ends(room), "whole told");
  EXPECT_EQ(room.Receiver(0).RunningThreads() + room.Receiver(0).OpenSockets(), 0u);
}

TEST(Hosts, AThousandTransfersInOneProcess) {
  Room room(Robust(1));
  room.World().SetLogging(false);
  room.File("a", 3 * BLOCK_SIZE);
  for (int transfer = 0; transfer < (IS_SANITIZED ? 50 : 1000); ++transfer) {
    ASSERT_TRUE(room.StartReceiver(0));
    ASSERT_TRUE(room.Send());
    ASSERT_TRUE(room.RunUntilQuiet(10s)) << transfer;
    ASSERT_TRUE(room.WasToldComplete(0)) << transfer;
    room.Receiver(0).Call([&] { room.Client(0).DeInitClient(); });
    room.Sender().Call([&] { room.Server().DeInitServer(); });
    room.World().RunFor(5s);
    for (const SimMachine* machine : {&room.Receiver(0), &room.Sender()})
      ASSERT_EQ(machine->RunningThreads() + machine->OpenSockets(), 0u) << transfer;
  }
}

}  // namespace
}  // namespace quorl::sim
