// Set-up, teardown and the watch on the heartbeat, to the millisecond.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct TeardownTest : BothProfiles {
  bool IsRobust() const { return GetParam() == Profile::Robust; }

  void ExpectNothingLeft() {
    EXPECT_EQ(pc.OpenSockets(), 0u);
    EXPECT_EQ(pc.NetworkStarts(), 0);
    EXPECT_EQ(pc.RunningThreads(), 0u);
  }
};
INSTANTIATE_TEST_SUITE_P(Profiles, TeardownTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(TeardownTest, ExportsInAnyOrderAreHarmless) {
  client.SetProfile(GetParam());
  EXPECT_EQ(DeInit(), 0ms);
  pc.Call([&] {
    EXPECT_EQ(client.StartReceive(), 1u);
    EXPECT_EQ(client.StopReceive(), 1u);
  });
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Idle);
  Listen(GetParam());
  pc.Call([&] { client.StartReceive(); });
  EXPECT_EQ(pc.RunningThreads(), 2u);
  DeInit();
  EXPECT_EQ(DeInit(), 0ms);
  pc.Call([&] { client.StartReceive(); });
  world.RunFor(1ms);
  ExpectNothingLeft();
}

TEST_P(TeardownTest, WithoutDatagramsClassicWaitsFiveSecondsAndRobustOnlyForItsThreads) {
  Listen(GetParam());
  const Duration took = DeInit();
  if (IsRobust()) {
    EXPECT_LE(took, 12ms);
  } else {
    EXPECT_EQ(took, 5010ms);
  }
  world.RunFor(1ms);
  ExpectNothingLeft();
  const Lines expected = {"-------------CloseAll", "-------------Before WaitResult", "-------------After WaitResult",
                          "-------------DestoryAll"};
  EXPECT_EQ(pc.DebugLines(), expected);
}

TEST_P(TeardownTest, WithoutStartReceiveOnlyClassicWaits) {
  client.SetProfile(GetParam());
  pc.Call([&] { EXPECT_EQ(client.InitClient(window, 0, 0, RECEIVER), 1u); });
  EXPECT_EQ(DeInit(), IsRobust() ? 10ms : 5010ms);
  ExpectNothingLeft();
}

TEST_P(TeardownTest, InTheMiddleOfATransferEveryThreadEndsAndThePendingRunIsWritten) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendData(3, 0);
  SendData(3, 1);
  world.RunFor(10ms);
  EXPECT_EQ(pc.RunningThreads(), 4u);
  DeInit();
  world.RunFor(1ms);
  ExpectNothingLeft();
  EXPECT_TRUE(HasDebugLine("C:\\in\\sub\\three.bin\n"));
  EXPECT_EQ(pc.Disk().Length("C:\\in\\sub\\three.bin"), 2 * BLOCK_SIZE);
  EXPECT_EQ(Told(), Lines{"1039 3 6"});
}

TEST_P(TeardownTest, AReceiverWorksAgainAfterDeInitAndInit) {
  AddThreeFiles();
  for (const char* target : {"C:\\first", "C:\\second"}) {
    Listen(GetParam());
    Announce(target);
    SendStream({{3, 2}});
    ToGroup(Finish{0});
    world.RunFor(500ms);
    EXPECT_EQ(Repair().size(), 1u);
    ExpectFilesAt(target);
    DeInit();
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Complete);
  }
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 0 1", "1039 3 6", "1040 0 1"}));
  ExpectNothingLeft();
}

TEST_P(TeardownTest, InitAgainWithoutDeInitClosesTheEarlierReceiver) {
  Listen(GetParam());
  Listen(GetParam());
  world.RunFor(1ms);
  EXPECT_EQ(pc.RunningThreads(), 2u);
  EXPECT_EQ(pc.OpenSockets(), 2u);
}

TEST_P(TeardownTest, AnInitThatFailsAtAnyCallLeavesNothing) {
  client.SetProfile(GetParam());
  int failures = 0;
  for (const auto seam : {sim::Seam::Threads, sim::Seam::Network}) {
    for (uint64_t nth = 1;; ++nth) {
      const uint64_t before = pc.Calls(seam);
      const int starts = pc.NetworkStarts();
      uint32_t opened = 1;
      pc.FailCall(seam, nth);
      pc.Call([&] { opened = client.InitClient(window, 0, 0, RECEIVER); });
      if (opened == 0) ++failures;
      DeInit();
      ASSERT_EQ(pc.OpenSockets(), 0u) << "call " << nth;
      // A start that failed is given back as well.
      ASSERT_LE(pc.NetworkStarts(), starts) << "call " << nth;
      if (pc.Calls(seam) - before < nth) break;
    }
    pc.FailCall(seam, 0);  // the last one was never reached
  }
  // Four events; sixteen steps of the sockets, of which the data socket's receive buffer may fail.
  EXPECT_EQ(failures, 4 + 15);
  Listen(GetParam());
  ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines{"CMD_CLIENT platform=1"});
}

TEST_P(TeardownTest, AThreadThatCannotBeStartedKeepsNobodyWaiting) {
  for (uint64_t nth = 1; nth <= 4; ++nth) {
    client.SetProfile(GetParam());
    files.clear();
    AddThreeFiles();
    pc.Call([&] {
      ASSERT_EQ(client.InitClient(window, 0, 0, RECEIVER), 1u);
      pc.FailCall(sim::Seam::Threads, nth);
      EXPECT_EQ(client.StartReceive(), 1u);
    });
    Announce();
    SendStream({{3, 1}});
    ToGroup(Finish{0});
    world.RunFor(1s);
    EXPECT_LE(DeInit(), 5010ms);
    world.RunFor(1ms);
    ExpectNothingLeft();
  }
}

TEST_P(TeardownTest, AFinishThatCannotBeSentTearsTheReceiverDownFromItsOwnThread) {
  pc.Disk().SetDriveType(DriveType::CdRom);
  Listen(GetParam());
  pc.FailEvery([](std::string_view call) { return call == "network.send"; });
  const Moment before = world.Now();
  Announce();
  EXPECT_TRUE(HasDebugLine("\nQuorl-----Client send finish Failed!\n"));
  EXPECT_TRUE(HasDebugLine("-------------CloseAll"));
  EXPECT_TRUE(world.RunUntil([&] { return pc.RunningThreads() == 0; }, 10s));
  EXPECT_LE(world.Now() - before, 200ms);
  ExpectNothingLeft();
  EXPECT_EQ(DeInit(), 0ms);
}

TEST_P(TeardownTest, AWriterThatCannotReportTearsDownAndItsFilesAreClosed) {
  pc.Disk().RefuseName([](const std::string& name) { return name == "two.bin"; });
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  pc.FailEvery([](std::string_view call) { return call == "network.send"; });
  SendData(1, 0);
  SendData(2, 0);
  EXPECT_TRUE(world.RunUntil([&] { return pc.RunningThreads() == 0; }, 10s));
  ExpectNothingLeft();
}

TEST_P(TeardownTest, AHostThatTearsDownInsideTheMessageWithTheFileToOpenWaitsBoundedly) {
  Duration took{};
  window = pc.MakeWindow([&](uint32_t message, uintptr_t wParam, intptr_t lParam) {
    if (message != WM_TRANS_STATUS || wParam != 0 || lParam <= 1) return;
    const Moment before = pc.Seam().clock.Now();
    client.DeInitClient();
    took = pc.Seam().clock.Now() - before;
  });
  Listen(GetParam());
  AddThreeFiles();
  ToGroup(AutoOpenName{NameField::From("\\one.bin")});
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(10s);
  EXPECT_EQ(took, 5010ms);
  ExpectFilesAt("C:\\in");
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Complete);
  pc.DestroyWindow(window);
  world.RunFor(1ms);
  ExpectNothingLeft();
}

TEST_P(TeardownTest, AWriterThatIsStillWritingAfterTheWaitClosesItsFileItself) {
  pc.Disk().SetWriteTime(20s);
  Listen(GetParam());
  AddFile("\\a.bin", 100);
  Announce();
  SendData(1, 0);
  EXPECT_EQ(DeInit(), 5010ms);
  EXPECT_EQ(pc.OpenSockets(), 1u);  // the heartbeat's, until the last thread has ended
  world.RunFor(20s);
  ExpectNothingLeft();
  ExpectFilesAt("C:\\in");
}

TEST_P(TeardownTest, TheReceiverMayBeDestroyedWhileItsThreadsRun) {
  Listen(GetParam());
  std::optional<CTransClient> shortLived(std::in_place, pc.Seam());
  pc.Call([&] {
    EXPECT_EQ(shortLived->InitClient(window, 0, 27100, RECEIVER), 1u);
    shortLived->StartReceive();
  });
  shortLived.reset();
  world.RunFor(1s);
  EXPECT_EQ(pc.RunningThreads(), 4u);
}

TEST_P(TeardownTest, ASilentSenderIsTakenAsLostAfterFourChecks) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  const Moment announced = pc.Messages().front().at;
  world.RunFor(11999ms);
  EXPECT_EQ(TakeReplies(), Lines{});
  world.RunFor(8s);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=1004"));
  const Duration copies = IsRobust() ? 20ms : 0ms;
  EXPECT_EQ(LatestReplyAt(), announced + 12s + copies);
  EXPECT_EQ(pc.Messages().back().at, announced + 12s + copies + 100ms);
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 1004 0"}));
  for (const char* line : {"\n Tget  Report1 @@@\n", "\n Tget  Report2 @@@\n", "\n Tget  Report3 @@@\n"})
    EXPECT_TRUE(HasDebugLine(line));
  ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines{"CMD_CLIENT platform=1"});
  DeInit();
  ExpectNothingLeft();
}

TEST_P(TeardownTest, AHeartbeatEveryFiveSecondsKeepsTheSenderAliveAndEachCheckReadsOne) {
  Listen(GetParam());
  AddThreeFiles();
  SendReport();
  Announce();
  const Moment announced = pc.Messages().front().at;
  for (int second = 0; second < 60; ++second) {
    if (second % 5 == 0) SendReport();
    world.RunFor(1s);
  }
  EXPECT_EQ(TakeReplies(), Lines{});
  // The last was sent 5 s ago; those that wait are read one a check before the silence counts.
  const Moment last = announced + 55s;
  world.RunFor(60s);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=1004"));
  EXPECT_GE(LatestReplyAt(), last + 12s);
  EXPECT_EQ((LatestReplyAt() - announced - (IsRobust() ? 20ms : 0ms)) % 4s, 0ms);
}

TEST_P(TeardownTest, AnythingElseInTheHeartbeatsSocketIsAMissedCheck) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  Send(Build(Collect{}), REPORT_GROUP);
  Send(std::vector<uint8_t>{1, 2, 14, 0, 0, 0, 0}, REPORT_GROUP);
  Send(std::vector<uint8_t>{0x91}, REPORT_GROUP);
  world.RunFor(13s);
  EXPECT_EQ(Told().back(), "1040 1004 0");
}

}  // namespace
}  // namespace quorl
