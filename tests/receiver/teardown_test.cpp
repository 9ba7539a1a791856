// Set-up, teardown and the watch on the heartbeat, to the millisecond.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct TeardownTest : BothProfiles {
  void ExpectNothingLeft() {
    world.RunFor(1ms);
    EXPECT_EQ(pc.OpenSockets(), 0u);
    EXPECT_EQ(pc.NetworkStarts(), 0);
    EXPECT_EQ(pc.RunningThreads(), 0u);
  }
};
INSTANTIATE_TEST_SUITE_P(Profiles, TeardownTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(TeardownTest, EveryThreadEndsAndThePendingRunIsWritten) {
  Listen(GetParam());
  const Duration took = DeInit();
  EXPECT_TRUE(IsRobust() ? took <= 12ms : took == 5010ms) << took / 1ms << " ms without any datagram";
  ExpectNothingLeft();
  client.SetCapabilities(1);
  Begin(GetParam());
  SendData(3, 0);
  SendData(3, 1);
  world.RunFor(10ms);
  EXPECT_EQ(pc.RunningThreads(), IsRobust() ? 4u : 3u) << "robust has mail";
  DeInit();
  ExpectNothingLeft();
  EXPECT_EQ(pc.Disk().Length("C:\\in\\sub\\three.bin"), 2 * BLOCK_SIZE);
  const Lines expected = {"-------------CloseAll", "-------------Before WaitResult", "-------------After WaitResult",
                          "C:\\in\\sub\\three.bin\n", "-------------DestoryAll"};
  EXPECT_EQ(Lines(pc.DebugLines().end() - 5, pc.DebugLines().end()), expected);
}

TEST_P(TeardownTest, AnInitThatFailsAtAnyCallLeavesNothing) {
  client.SetProfile(GetParam());
  int failures = 0;
  for (const auto seam : {sim::Seam::Threads, sim::Seam::Network}) {
    for (uint64_t nth = 1;; ++nth) {
      const uint64_t before = pc.Calls(seam);
      const int starts = pc.NetworkStarts();
      pc.FailCall(seam, nth);
      pc.Call([&] { failures += client.InitClient(window, 0, 0, RECEIVER) == 0; });
      DeInit();
      ASSERT_EQ(pc.OpenSockets(), 0u) << "call " << nth;
      // A start that failed is given back as well.
      ASSERT_LE(pc.NetworkStarts(), starts) << "call " << nth;
      if (pc.Calls(seam) - before < nth) break;
    }
    pc.FailCall(seam, 0);  // the last one was never reached
  }
  // Six events; sixteen steps of the sockets, of which the data socket's receive buffer may fail.
  EXPECT_EQ(failures, 6 + 15);
  Listen(GetParam());
  ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines{"CMD_CLIENT platform=1"});
}

TEST_P(TeardownTest, AWriterThatIsStillWritingAfterTheWaitClosesItsFileItself) {
  pc.Disk().SetWriteTime(20s);
  Begin(GetParam());
  SendData(1, 0);
  EXPECT_EQ(DeInit(), 5010ms);
  EXPECT_EQ(pc.OpenSockets(), 1u);  // the heartbeat's, until the last thread has ended
  world.RunFor(20s);
  ExpectNothingLeft();
  EXPECT_EQ(pc.Disk().Length("C:\\in\\one.bin"), 100u);
}

TEST_P(TeardownTest, ASilentSenderIsTakenAsLostAfterFourChecksAndAskedNoMore) {
  Begin(GetParam());
  const Moment announced = pc.Messages().front().at;
  SendStream({{2, 1}});
  ToReceiver(Master{1});
  world.RunFor(29s);
  const Duration copies = IsRobust() ? 20ms : 0ms;
  // Robust takes the announcement and then the stream for signs of life.
  const Duration silent = IsRobust() ? 20s : 12s;
  EXPECT_EQ(LatestReplyAt(), announced + silent + copies);
  EXPECT_EQ(pc.Messages().back().at, announced + silent + copies + 100ms);
  EXPECT_EQ(TakeReplies().back(), "CMD_FINISH status=1004");
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 1004 0"}));
  for (const char* line : {"\n Tget  Report1 @@@\n", "\n Tget  Report2 @@@\n", "\n Tget  Report3 @@@\n"})
    EXPECT_TRUE(HasDebugLine(line));
}

// The loss of a sender is told 100 ms after it has been told to the sender; by then it may have begun anew.
TEST_P(TeardownTest, ALossThatBelongsToTheTransferBeforeIsNotTold) {
  Begin(GetParam());
  const Moment announced = pc.Messages().front().at;
  const Duration silent = IsRobust() ? 16s : 12s;
  world.RunFor(announced + silent + 50ms - world.Now());
  EXPECT_EQ(TakeReplies().back(), "CMD_FINISH status=1004");
  Announce("C:\\other");
  world.RunFor(3s);
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1039 3 6"}));
}

TEST_F(ScriptedSender, AnIdleRobustReceiverTellsOfAHeartbeatThatItTakesNoPartIn) {
  Listen(Profile::Robust);
  world.RunFor(2s);
  EXPECT_EQ(client.GetState().otherSender, 0u);
  Send(Build(Report{}), REPORT_GROUP);
  world.RunFor(2s);
  EXPECT_EQ(client.GetState().otherSender, SENDER);
  AddThreeFiles();
  Announce();
  EXPECT_EQ(client.GetState().otherSender, 0u);
}

}  // namespace
}  // namespace quorl
