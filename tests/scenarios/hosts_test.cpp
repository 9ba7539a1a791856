// Hosts that are slow, call back, call in any order, or never stop.
#include <gtest/gtest.h>
#include <malloc.h>

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

// Both starts wait for a thread of the transfer before, which a slow disk keeps. Nobody may lose sight of the one that
// the other replaces.
TEST(Hosts, OneThatStartsTwoTransfersAtOnceAndClosesTheSenderLeavesNothing) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    for (const Duration closed : {0ms, 50ms, 310ms, 350ms, 500ms, 1000ms, 1200ms, 1600ms, 3000ms}) {
      SCOPED_TRACE(closed / 1ms);
      Room room({.receivers = 3, .senderProfile = profile, .receiverProfile = profile});
      room.File("a", 100 * BLOCK_SIZE);
      room.Net().SetFilter([](const Transit& transit) { return !Is(transit, CMD_ACK); });
      room.Sender().FailEvery([&room, reads = 0](std::string_view call) mutable {
        if (call == "files.read" && ++reads == 4) room.Sender().Seam().clock.Sleep(300ms);
        return false;
      });
      Begin(room, 20ms);
      for (int i = 0; i < 2; ++i) room.Sender().Spawn("host", [&room] { room.Server().StartSend(); });
      room.World().RunFor(closed);
      room.Sender().Call([&] { room.Server().DeInitServer(); });
      room.World().RunFor(5s);
      EXPECT_EQ(room.Sender().RunningThreads() + room.Sender().OpenSockets(), 0u);
    }
  }
}

TEST(Hosts, ThatSendAndReceiveAThousandTimesInOneProcessKeepNothing) {
  Room room({.seed = 3, .senderProfile = Profile::Robust, .receiverProfile = Profile::Robust});
  room.World().SetLogging(false);
  room.ConfineReceivers();
  room.File("a.bin", 20'000);
  room.File("sub\\b.bin", 300);
  SimMachine& machine = room.Receiver(0);
  size_t used = 0;
  for (int transfer = 1; transfer <= 1000; ++transfer) {
    SCOPED_TRACE(transfer);
    ASSERT_TRUE(room.StartReceivers());
    // Now and then the sender stops, the network loses everything from some moment on, or a file cannot be written.
    const bool stops = transfer % 10 == 3;
    const bool breaks = transfer % 25 == 7;
    const bool fails = transfer % 10 == 9;
    if (fails) machine.FailEvery([](std::string_view call) { return call == "files.write"; });
    ASSERT_TRUE(room.Send());
    if (breaks) room.Net().SetLoss(1);
    if (stops) room.Sender().Call([&] { room.Server().StopSend(); });
    room.RunUntilQuiet(120s);
    EXPECT_EQ(room.WasToldComplete(0), !stops && !breaks && !fails);
    machine.Call([&] { room.Client(0).DeInitClient(); });
    room.Sender().Call([&] { room.Server().DeInitServer(); });
    room.Net().SetLoss(0);
    machine.FailEvery({});
    ASSERT_TRUE(room.World().RunUntil([&] { return machine.RunningThreads() == 0; }, 30s));
    ASSERT_EQ(machine.OpenSockets(), 0u);
    ASSERT_EQ(machine.NetworkStarts(), 0);
    if (transfer == 100) used = mallinfo2().uordblks;
  }
  // The world itself remembers messages; a session or a buffer that stayed would be more.
  EXPECT_LT(mallinfo2().uordblks, used + 900 * 2000);
}

}  // namespace
}  // namespace quorl::sim
