// Disks that fill up, fail, are slow or lose what they had: a receiver says that it is complete exactly when it is.
#include <gtest/gtest.h>

#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

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
  for (int nth = 1; nth <= 10; ++nth) {
    Room room({1, static_cast<uint64_t>(nth), Profile::Robust, Profile::Robust});
    for (const char* name : {"a", "b", "c"}) room.File(name, 3 * BLOCK_SIZE - 7);
    room.Receiver(0).FailEvery([&, writes = 0](std::string_view call) mutable {
      if (call == "files.write" && ++writes == nth)
        room.World().At(room.World().Now(), [&] { room.World().CutPower(room.Receiver(0)); });
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
}

}  // namespace
}  // namespace quorl::sim
