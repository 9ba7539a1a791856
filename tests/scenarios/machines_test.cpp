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
  // Each misses two blocks of its own; the first to ask for one freezes, and never sees an answer.
  room.Net().SetFilter([&, frozen = false](const Transit& transit) mutable {
    if (Is(transit, CMD_ACK) && !std::exchange(frozen, true)) room.Receiver(0).Freeze();
    if (transit.to == &room.Receiver(0) && Is(transit, CMD_RESEND)) return false;
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
  room.Server().SetSendRate(30);
  // Long enough for many heartbeats, which nobody needs while blocks arrive.
  Begin(room, 100s);
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
  Stranger(room).SayToRoom(Stranger::ADDRESS, Build(Stop{}));
  room.World().RunFor(10ms);
  EXPECT_EQ(room.Client(0).GetState().phase, ReceivePhase::Receiving) << "bound anew, to who has announced again";
  EXPECT_EQ(CountMessages(room.Sender(), WM_FILE_NAME), 2u) << "once in each transfer";
  room.Sender().PowerOff();
  EXPECT_TRUE(room.RunUntilQuiet(40s)) << "nobody told it that the second transfer is over";
  EXPECT_EQ(Room::Statuses(room.Receiver(0)),
            (std::vector<uint32_t>{QUORL_STATUS_SENDER_LOST, QUORL_STATUS_SENDER_LOST}));
}

// No datagram says which transfer it belongs to: of the next one's blocks only the announcement makes a new transfer.
TEST(Machines, BlocksAfterAStopAreNotTakenForThoseThatTheStoppedTransferLacked) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    Room room({.receivers = 1, .senderProfile = profile, .receiverProfile = profile});
    room.File("a", 20 * BLOCK_SIZE - 1);
    bool isFirst = true;
    room.Net().SetFilter([&](const Transit& transit) {
      if (Is(transit, CMD_DATA)) return (HeadOf(transit).block < 10) == isFirst;
      return isFirst || !Is(transit, CMD_TASK);
    });
    Begin(room, 80ms);
    room.Sender().Call([&] { room.Server().StopSend(); });
    isFirst = false;
    room.ReplaceFiles();
    room.SendAgain();
    ASSERT_TRUE(room.RunUntilQuiet(120s));
    EXPECT_FALSE(room.Client(0).GetState().complete);
    EXPECT_EQ(room.WasToldComplete(0), profile == Profile::Classic);
  }
}

TEST(Machines, AfterAStopAnotherSenderIsHeard) {
  Room room(Robust(1));
  room.File("a", 100 * BLOCK_SIZE);
  Begin(room, 100ms);
  room.Sender().Call([&] { room.Server().StopSend(); });
  Stranger(room).SayToRoom(Stranger::ADDRESS, Build(Task{.totalBlocks = 1, .fileCount = 1}));
  room.World().RunFor(10ms);
  EXPECT_EQ(CountMessages(room.Receiver(0), WM_TASK_INFO), 2u);
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

TEST(Heartbeats, WhereAllAreLostTheBlocksShowThatTheSenderLives) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    Room room({.receivers = 1, .senderProfile = profile, .receiverProfile = profile});
    room.World().SetLogging(false);
    room.File("a", 3000 * BLOCK_SIZE);
    room.Net().SetFilter([](const Transit& transit) { return !Is(transit, CMD_REPORT); });
    Play(room);
    EXPECT_EQ(Ends(room), profile == Profile::Robust ? "whole told" : "holes 1004");
  }
}

}  // namespace
}  // namespace quorl::sim
