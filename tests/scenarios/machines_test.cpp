// Machines that stand still or come back, and disks that fill up, fail, are slow or lose what they had: a receiver says
// that it is complete exactly when it is.
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

TEST(LateAnswer, AReceiverWhoseAnswerToTheCollectionComesInTheSecondPassIsReported) {
  Room room(Robust(2));
  room.File("a", 20 * BLOCK_SIZE);
  room.Net().SetFilter([](const Transit& transit) {
    return !(Is(transit, CMD_DATA) && HeadOf(transit).block == 7) && !Is(transit, CMD_RESEND);
  });
  room.Net().SetLink(&room.Receiver(1), &room.Sender(), {.hungUntil = 10s});
  Play(room);
  EXPECT_EQ(Ends(room), "holes 1460, holes 1460");
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

struct Disks : InBothProfiles {
  static std::unique_ptr<Room> MakeRoom() {
    auto room = std::make_unique<Room>(Receivers(2));
    for (const char* name : {"a", "b", "c"}) room->File(name, 3 * BLOCK_SIZE - 7);
    return room;
  }

  /// What has failed at the first receiver is known everywhere. A classic one ends all the same as if it had not, and
  /// closes its last file only at the teardown.
  static void ExpectFailure(Room& room, const std::string& story) {
    EXPECT_TRUE(!room.Client(0).GetState().complete || room.HoldsAllFiles(0)) << story;
    if (IsRobust()) {
      EXPECT_FALSE(room.WasToldComplete(0)) << story;
      EXPECT_TRUE(room.FailedReceivers().contains(0)) << story;
    }
    EXPECT_TRUE(room.TreesIdentical(1) && room.WasToldComplete(1)) << story;
  }
};

TELL_IN_BOTH_PROFILES(Disks);

TEST_P(Disks, EachFileCallOfAReceiverFailsOnce) {
  for (const char* call : {"files.open", "files.write", "files.close"}) {
    for (uint64_t nth = 1; nth <= 3; ++nth) {
      auto room = MakeRoom();
      room->Receiver(0).FailCall(call, nth);
      Play(*room);
      ExpectFailure(*room, call + std::to_string(nth));
    }
  }
}

TEST_P(Disks, EachFileCallOfASenderFailsOnce) {
  for (const char* call : {"files.open", "files.length", "files.read"}) {
    for (uint64_t nth = 1; nth <= 9; ++nth) {
      auto room = MakeRoom();
      room->Sender().FailCall(call, nth);
      Play(*room);
      for (size_t i = 0; i < 2; ++i)
        EXPECT_TRUE(!room->WasToldComplete(i) || room->HoldsAllFiles(i) || room->Server().GetState().shrunkFiles > 0)
            << call << nth;
    }
  }
}

TEST_P(Disks, FullInTheMiddleAndFreeAgain) {
  auto room = MakeRoom();
  room->File("d", 100 * BLOCK_SIZE);
  Begin(*room, 200ms);
  room->Receiver(0).Disk().SetFreeBytes(0);
  room->World().RunFor(200ms);
  room->Receiver(0).Disk().SetFreeBytes(uint64_t{1} << 40);
  EXPECT_TRUE(room->RunUntilQuiet(300s));
  ExpectFailure(*room, "full");
  EXPECT_EQ(Room::Statuses(room->Receiver(0)).front(), uint32_t{QUORL_STATUS_DISK_FULL});
}

TEST(SlowDisk, AReceiverWhoseDiskTakesMinutesLongerThanTheNetwork) {
  Room room(Robust(2));
  room.File("a", 1200 * BLOCK_SIZE);
  room.Receiver(0).Disk().SetWriteTime(3s);
  Play(room, 600s);
  EXPECT_EQ(Ends(room), "whole told, whole told");
  EXPECT_GT(room.World().Now(), 120s);
}

// Everything has come when the disk stalls: the sender is kept waiting, and nobody says anything untrue meanwhile. With
// a single block there is nothing else to ask for.
TEST(SlowDisk, OneThatStallsAtTheEndIsWaitedFor) {
  for (const Profile senders : {Profile::Classic, Profile::Robust}) {
    for (const uint64_t blocks : {1, 40}) {
      Room room({.receivers = 2, .senderProfile = senders, .receiverProfile = Profile::Robust});
      room.File("a", blocks * BLOCK_SIZE - 1);
      room.Receiver(1).Disk().SetWriteTime(9s);
      Play(room);
      EXPECT_EQ(Ends(room), "whole told, whole told") << blocks;
      EXPECT_EQ(Room::Statuses(room.Receiver(1)), std::vector<uint32_t>{0}) << blocks;
      for (const SentDatagram& sent : room.Net().Sent())
        EXPECT_FALSE(sent.bytes.at(2) == CMD_RESEND && sent.bytes.size() > BLOCK_HEAD_SIZE) << "no block again";
    }
  }
}

// What a receiver knows of its disk it forgets with its power, so that nothing which is gone counts as received.
TEST(PowerCut, AtEachWriteAndTheNextTransferBringsEverything) {
  int lost = 0;
  for (int nth = 1; nth <= 10; ++nth) {
    Room room({1, static_cast<uint64_t>(nth), Profile::Robust, Profile::Robust});
    for (const char* name : {"a", "b", "c"}) room.File(name, 3 * BLOCK_SIZE - 7);
    room.Receiver(0).FailEvery([&, writes = 0](std::string_view call) mutable {
      if (call == "files.write" && ++writes == nth)
        room.World().At(room.World().Now(), [&] {
          const auto before = room.Receiver(0).Disk().Tree("C:");
          room.World().CutPower(room.Receiver(0));
          lost += room.Receiver(0).Disk().Tree("C:") != before;
        });
      return false;
    });
    Begin(room);
    room.RunUntilQuiet(60s);
    if (!room.Receiver(0).IsOff()) room.World().CutPower(room.Receiver(0));
    room.Receiver(0).FailEvery({});
    ASSERT_TRUE(room.RestartReceiver(0));
    EXPECT_FALSE(room.Client(0).GetState().complete);
    ASSERT_TRUE(room.Send());
    ASSERT_TRUE(room.RunUntilQuiet(60s));
    EXPECT_EQ(Ends(room), "whole told") << "write " << nth;
  }
  EXPECT_GT(lost, 0) << "a disk that keeps everything shows nothing";
}

}  // namespace
}  // namespace quorl::sim
