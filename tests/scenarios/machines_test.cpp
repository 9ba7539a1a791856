// Machines and hosts that stand still, come back, are slow, call back or never stop, and disks that fill up, fail, lose
// what they had or never answer: a receiver says that it is complete exactly when it is.
#include <gtest/gtest.h>
#include <malloc.h>
#include <utility>

#include "sim/room/room.h"
#include "sim/world/fibers/sanitizers.h"
#include "tests/scenarios/story.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

TEST(StartUp, ThatFailsAtAnyCallLeavesNothing) {
  for (const auto& [isSender, seam, least] : {std::tuple{true, Seam::Network, 20},
                                              {true, Seam::Threads, 5},
                                              {false, Seam::Network, 15},
                                              {false, Seam::Threads, 6}}) {
    quorl::sim::World world{1};
    SimMachine& machine = world.AddMachine("pc", Ipv4(10, 0, 0, 1));
    int failures = 0;
    bool fails = true;
    for (uint64_t nth = 1; fails; ++nth) {
      CTransServer server(machine.Seam());
      CTransClient client(machine.Seam());
      const uint64_t before = machine.Calls(seam);
      const size_t lines = machine.DebugLines().size();
      machine.FailCall(seam, nth);
      uint32_t result = 0;
      machine.Call([&, isSender = isSender] {
        result = isSender ? server.InitServer(nullptr, 0, 0, machine.Address())
                          : client.InitClient(nullptr, 0, 0, machine.Address());
      });
      failures += result == 0;
      EXPECT_TRUE(result == 1 || !isSender || (machine.OpenSockets() == 0 && machine.DebugLines().size() == lines + 1));
      fails = machine.Calls(seam) - before >= nth;
      machine.Call([&, isSender = isSender] { isSender ? server.DeInitServer() : client.DeInitClient(); });
      world.RunFor(100ms);
      EXPECT_EQ(machine.RunningThreads() + machine.OpenSockets(), 0u) << nth;
      EXPECT_LE(machine.NetworkStarts(), 0) << nth;
    }
    EXPECT_GE(failures, least);
  }
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

TEST(Hosts, OneThatBlocksForAMinuteAtEachMessageHoldsNothingUp) {
  Room room({1, 1, Profile::Robust, Profile::Robust, "\\a"});
  room.File("a", 20 * BLOCK_SIZE);
  room.HandleMessages(0, [&](uint32_t, uintptr_t, intptr_t) { room.Receiver(0).Seam().clock.Sleep(60s); });
  room.HandleSenderMessages([&](uint32_t, uintptr_t, intptr_t) { room.Sender().Seam().clock.Sleep(60s); });
  Play(room, 10s);
  EXPECT_EQ(Ends(room), "whole told");
  const Moment before = room.World().Now();
  room.Receiver(0).Call([&] { room.Client(0).DeInitClient(); });
  EXPECT_LE(room.World().Now() - before, 5100ms);
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

#ifdef __GLIBC__  // Its heap is asked.
TEST(Hosts, ThatSendAndReceiveAThousandTimesInOneProcessKeepNothing) {
  Room room({.seed = 3, .senderProfile = Profile::Robust, .receiverProfile = Profile::Robust});
  room.World().SetLogging(false);
  room.ConfineReceivers();
  room.File("a.bin", 20'000);
  room.File("sub\\b.bin", 300);
  SimMachine& machine = room.Receiver(0);
  size_t used = 0;
  for (int transfer = 1; transfer <= (IS_SANITIZED ? 300 : 1000); ++transfer) {
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
#endif

/// Block 0 of file 1 of every stream is lost, and the read for its repair hangs.
struct SlowRead : testing::TestWithParam<Profile> {
  void RunIntoTheRead(Duration pause, bool fails) {
    room.Net().SetFilter([](const Transit& transit) {
      return !Is(transit, CMD_DATA) || HeadOf(transit).file != 2 || HeadOf(transit).block != 1;
    });
    room.File("d\\a", 5);
    room.File("d\\z", 40 * BLOCK_SIZE);
    room.Sender().Disk().WriteSynthetic("C:\\e\\a", 5, 1);
    room.Sender().Disk().WriteSynthetic("C:\\e\\z", 40 * BLOCK_SIZE, 2);
    ASSERT_TRUE(room.StartReceivers() && room.Send());
    ASSERT_TRUE(room.World().RunUntil([&] { return room.Server().GetState().phase == SendPhase::Finishing; }, 10s));
    room.Sender().FailEvery([this, pause, fails](std::string_view call) {
      if (call != "files.read" || std::exchange(hangs, true)) return false;
      room.Sender().Seam().clock.Sleep(pause);
      return fails;
    });
    ASSERT_TRUE(room.World().RunUntil([&] { return hangs; }, 10s));
    room.World().RunFor(10ms);
  }
  void SendTheOther() {
    room.Net().SetFilter(nullptr);
    room.Sender().Call([&] {
      room.Server().SetSelectFiles({"C:\\e"}, "");
      room.Server().StartSend();
    });
    ASSERT_TRUE(room.World().RunUntil([&] { return room.Client(0).GetState().complete; }, 60s));
    room.World().RunFor(10s);
    EXPECT_TRUE(room.Receiver(0).Disk().SameTree("C:\\in\\e", room.Sender().Disk(), "C:\\e"));
    EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{0});
  }

  /// How long a call of the host takes.
  Duration Took(const std::function<void()>& call) {
    const Moment before = room.World().Now();
    room.Sender().Call(call);
    return room.World().Now() - before;
  }

  bool hangs = false;
  Room room{{.senderProfile = GetParam(), .receiverProfile = GetParam()}};
};

INSTANTIATE_TEST_SUITE_P(Profiles, SlowRead, testing::Values(Profile::Classic, Profile::Robust));

TEST_P(SlowRead, ABlockOfTheLastTransferDoesNotGetIntoTheNext) {
  RunIntoTheRead(200ms, false);
  SendTheOther();
}

TEST_P(SlowRead, AThreadThatHangsBeyondEveryWaitCannotEndTheNextTransfer) {
  RunIntoTheRead(8s, true);
  SendTheOther();
}

TEST_P(SlowRead, NothingFollowsAStop) {
  RunIntoTheRead(300ms, false);
  room.Sender().Call([&] { room.Server().StopSend(); });
  room.World().RunFor(5s);
  EXPECT_EQ(room.Sender().RunningThreads(), 0u);
  EXPECT_EQ(CountSent(room, CMD_STOP), 3u);
  EXPECT_EQ(CountSent(room, CMD_RESEND), 0u);
  EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{0});
}

TEST_P(SlowRead, NobodyIsGivenUpWhileABlockIsBeingRead) {
  RunIntoTheRead(30s, false);
  EXPECT_TRUE(room.RunUntilQuiet(60s));
  EXPECT_EQ(Ends(room), "whole told");
  EXPECT_EQ(Room::Statuses(room.Sender()), std::vector<uint32_t>{0});
}

TEST_P(SlowRead, OneThatNeverReturnsEndsARobustTransferAndHoldsNoHostUp) {
  RunIntoTheRead(24h, false);
  const bool isRobust = GetParam() == Profile::Robust;
  room.World().RunFor(70s);
  EXPECT_EQ(Room::Statuses(room.Sender()),
            isRobust ? (std::vector<uint32_t>{0, QUORL_STATUS_FILE_UNREADABLE}) : std::vector<uint32_t>{});
  EXPECT_LE(Took([&] { room.Server().StopSend(); }), 100ms);
  EXPECT_LE(Took([&] { room.Server().StartSend(); }), 5200ms);
  EXPECT_LE(Took([&] { room.Server().DeInitServer(); }), 1ms);
}

TEST(SlowStream, ADiskThatNeverAnswersEndsARobustTransfer) {
  Room room(Robust(1));
  room.File("a", 40 * BLOCK_SIZE);
  room.Sender().FailEvery([&](std::string_view call) {
    if (call == "files.read") room.Sender().Seam().clock.Sleep(24h);
    return false;
  });
  Begin(room, 70s);
  EXPECT_EQ(Room::Statuses(room.Sender()), (std::vector<uint32_t>{0, QUORL_STATUS_FILE_UNREADABLE}));
  EXPECT_EQ(room.Client(0).GetState().phase, ReceivePhase::Stopped);
  EXPECT_EQ(room.Sender().RunningThreads(), 1U) << "the one that waits for the disk";
}

}  // namespace
}  // namespace quorl::sim
