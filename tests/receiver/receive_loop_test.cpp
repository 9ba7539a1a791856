// A transfer as the receive loop sees it: announcement, stream, empty directories, refusals.
#include "receiver/block_queue.h"
#include "scripted_sender.h"

namespace quorl {
namespace {

struct ReceiveLoopTest : BothProfiles {};
INSTANTIATE_TEST_SUITE_P(Profiles, ReceiveLoopTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(ReceiveLoopTest, AWholeStreamCompletesAndIsOnTheDiskBeforeTheHostIsTold) {
  bool wholeWhenTold = false;
  window = pc.MakeWindow([&](uint32_t message, uintptr_t wParam, intptr_t lParam) {
    if (message == WM_TRANS_STATUS && wParam == 0 && lParam == 1)
      wholeWhenTold = pc.Disk().Read("C:\\in\\sub\\three.bin") == files[2].content;
  });
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream();
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Receiving);
  ToGroup(Finish{0});
  world.RunFor(1s);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_ANSWER missing blocks=0"));
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 0 1"}));
  EXPECT_EQ(NamesTold(),
            (Lines{"\\one.bin", "\\two.bin", "\\two.bin", "\\sub\\three.bin", "\\sub\\three.bin", "\\sub\\three.bin"}));
  EXPECT_TRUE(wholeWhenTold);
  ExpectFilesAt("C:\\in");
  EXPECT_TRUE(HasDebugLine("\n-------------Receive"));
  EXPECT_TRUE(HasDebugLine("\nQuorl----transmission over---------WriteThread\n"));
  const ReceiveState state = client.GetState();
  EXPECT_EQ(state.phase, ReceivePhase::Complete);
  EXPECT_TRUE(state.complete);
  EXPECT_EQ(state.blocksStored, 6u);
  EXPECT_EQ(state.blocksMissing, 0u);
  EXPECT_EQ(state.senderAddress, SENDER);
  EXPECT_EQ(state.currentName, "\\sub\\three.bin");
  EXPECT_EQ(state.targetDir, "C:\\in");
}

TEST_P(ReceiveLoopTest, AnswersEveryCollect) {
  Listen(GetParam());
  for (int i = 0; i < 3; ++i) ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines(3, "CMD_CLIENT platform=1"));
}

TEST_P(ReceiveLoopTest, AFailedAnswerToCollectEndsTheReceiver) {
  Listen(GetParam());
  pc.FailEvery([](std::string_view call) { return call == "network.send"; });
  ToGroup(Collect{});
  EXPECT_EQ(Told(), Lines{"1040 1003 0"});
  EXPECT_TRUE(HasDebugLine("\nQuorl-----Send client failed!\n"));
  world.RunFor(10ms);
  EXPECT_EQ(pc.RunningThreads(), 0u);
}

TEST_P(ReceiveLoopTest, CopiesOfTheAnnouncementChangeNothingWithinHalfASecond) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  world.RunFor(10ms);
  Announce();
  SendData(1, 0);
  SendData(2, 0);
  Announce();
  EXPECT_EQ(Told(), Lines{"1039 3 6"});
  SendData(2, 1);
  for (uint32_t block = 0; block < 3; ++block) SendData(3, block);
  ToGroup(Finish{0});
  world.RunFor(1s);
  ExpectFilesAt("C:\\in");
  EXPECT_EQ(Told().back(), "1040 0 1");
}

TEST_P(ReceiveLoopTest, ALaterOrDifferentAnnouncementBeginsAnew) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendData(1, 0);
  SendData(2, 0);  // pending in the writer's run
  Announce("C:\\other");
  EXPECT_EQ(client.GetState().blocksStored, 0u);
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1039 3 6", "1040 0 1"}));
  ExpectFilesAt("C:\\other");
}

TEST_P(ReceiveLoopTest, TheSameAnnouncementAfterHalfASecondBeginsAnewWithNoFileOpen) {
  Listen(GetParam());
  AddFile("\\a.bin", 3 * BLOCK_SIZE);
  Announce();
  SendData(1, 0);
  files.clear();
  AddFile("\\b.bin", 3 * BLOCK_SIZE);  // the same numbers under another name
  world.RunFor(500ms);
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  EXPECT_EQ(Told(), (Lines{"1039 1 4", "1039 1 4", "1040 0 1"}));
  ExpectFilesAt("C:\\in");
}

TEST_P(ReceiveLoopTest, ANewTransferHasNoMasterYet) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{2, 1}});
  ToReceiver(Master{1});
  world.RunFor(600ms);
  Announce();
  SendStream({{2, 1}});
  ToGroup(Finish{0});
  world.RunFor(100ms);
  TakeReplies();
  SendResend(2, 1);
  world.RunFor(1s);
  EXPECT_EQ(TakeReplies(), Lines{});
}

TEST_P(ReceiveLoopTest, TheSameAnnouncementSoonAfterAStopBeginsAnew) {
  Listen(GetParam());
  AddFile("\\a.bin", 3 * BLOCK_SIZE);
  Announce();
  SendData(1, 0);
  SendData(1, 1);
  ToReceiver(Master{1});
  world.RunFor(20ms);
  ToGroup(Stop{});
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Stopped);
  files.clear();
  AddFile("\\b.bin", 3 * BLOCK_SIZE);
  Announce();
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Receiving);
  TakeReplies();
  SendStream({{1, 1}});
  ToGroup(Finish{0});
  world.RunFor(1s);
  SendResend(1, 1);
  world.RunFor(100ms);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_ANSWER missing blocks=1")) << "the new transfer has no master yet";
  Repair();
  EXPECT_EQ(Told(), (Lines{"1039 1 4", "1040 0 0", "1039 1 4", "1040 0 1"}));
  ExpectFilesAt("C:\\in");
}

TEST_P(ReceiveLoopTest, GapsOfALaterTransferAreExpandedAlthoughLostThreadHasEnded) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendData(3, 2);
  ToGroup(Finish{0});  // ends LostThread
  world.RunFor(1s);
  Announce("C:\\other");
  SendData(1, 0);
  SendData(3, 0);
  world.RunFor(100ms);
  EXPECT_EQ(client.GetState().blocksMissing, 1u);
}

TEST_P(ReceiveLoopTest, ARefusedTargetEndsTheLoopAndStartsNothing) {
  Listen(GetParam());
  AddThreeFiles();
  pc.Disk().SetDriveType(DriveType::Remote);
  const Moment before = world.Now();
  Announce();
  world.RunFor(1s);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=1002"));
  EXPECT_EQ(Told(), Lines{"1040 1002 0"});
  if (GetParam() == Profile::Classic) {
    EXPECT_EQ(pc.Messages().back().at - LatestReplyAt(), 100ms);
    EXPECT_LT(LatestReplyAt() - before, 2ms);
  }
  EXPECT_EQ(pc.RunningThreads(), 1u);  // the writer, until teardown
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
}

TEST_P(ReceiveLoopTest, ATransferThatDoesNotFitIsRefused) {
  Listen(GetParam());
  AddThreeFiles();
  pc.Disk().SetFreeBytes(6 * BLOCK_SIZE - 1);
  Announce();
  world.RunFor(1s);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=112"));
  EXPECT_EQ(Told(), Lines{"1040 112 0"});
}

TEST_P(ReceiveLoopTest, EveryStopIsToldAndTheReceiverGoesOn) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  ToGroup(Stop{});
  ToGroup(Stop{});
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 0 0", "1040 0 0"}));
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Stopped);
  ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines{"CMD_CLIENT platform=1"});
}

TEST_P(ReceiveLoopTest, EmptyDirectoriesAreMadeUpToOneThatIsTooLong) {
  Listen(GetParam());
  Announce("C:\\in");
  const std::string longest(260 - std::string("C:\\in").size() - 1, 'x');
  const std::vector<NameField> names = {NameField::From("\\a\\b"),        NameField::From("\\" + longest),
                                        NameField::From("\\..\\out"),     NameField::From("\\c"),
                                        NameField::From("\\x" + longest), NameField::From("\\never")};
  Send(BuildEmptyDir(names), DATA_GROUP);
  world.RunFor(200ms);
  EXPECT_EQ(pc.Disk().List("C:\\"), (Lines{"in", "in\\a", "in\\a\\b", "in\\c", "in\\" + longest}));
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=1007"));
  EXPECT_EQ(Told().back(), "1040 1007 0");
  ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines{});
}

TEST_P(ReceiveLoopTest, ForgedBlocksOfAnAnnouncedTransferAreDropped) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream();
  files.push_back({"\\four.bin", {}});
  SendData(4, 0);
  files.pop_back();
  const std::vector<File> honest = files;
  files[1].name = "\\evil.bin";
  SendData(2, 0);
  files[1] = {honest[1].name, sim::Bytes(3 * BLOCK_SIZE)};
  SendData(2, 0);
  files = honest;
  ToGroup(Finish{0});
  world.RunFor(1s);
  ExpectFilesAt("C:\\in");
  EXPECT_EQ(pc.Disk().List("C:\\in"), (Lines{"one.bin", "sub", "sub\\three.bin", "two.bin"}));
  EXPECT_EQ(NamesTold().size(), 6u);
}

TEST_P(ReceiveLoopTest, WithARootOfItsOwnNothingIsWrittenElsewhere) {
  client.SetReceiveRoot("C:\\home\\box");
  Listen(GetParam());
  AddThreeFiles();
  SendData(1, 0);  // nothing announced: there is no target yet
  Send(BuildEmptyDir(std::vector{NameField::From("\\dir")}), DATA_GROUP);
  world.RunFor(100ms);
  EXPECT_EQ(pc.Disk().List("C:\\"), Lines{});
  Announce("C:\\windows");
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  EXPECT_EQ(client.GetState().targetDir, "C:\\home\\box");
  ExpectFilesAt("C:\\home\\box");
  EXPECT_FALSE(pc.Disk().Read("C:\\windows\\one.bin"));
}

struct ClassicReceiveLoopTest : ScriptedSender {};

TEST_F(ClassicReceiveLoopTest, BlocksBeforeAnyAnnouncementGoToTheRootOfTheDrive) {
  Listen(Profile::Classic);
  AddFile("\\a.bin", 10);
  SendData(1, 0);
  world.RunFor(100ms);
  ExpectFilesAt("C:");
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Idle);
  EXPECT_FALSE(client.GetState().complete);
}

TEST_F(ClassicReceiveLoopTest, BlocksThatDoNotFitTheQueueCountAsLost) {
  world.SetLogging(false);
  Listen(Profile::Classic);
  AddFile("\\big.bin", 60000 * size_t{BLOCK_SIZE} + 9);
  pc.Disk().SetWriteTime(1h);  // the writer gets nowhere
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(10s);
  constexpr uint64_t ROOM_FOR = BlockQueue::ROOM / (BLOCK_SIZE + sizeof(ReceivedBlock));
  EXPECT_NEAR(static_cast<double>(client.GetState().blocksMissing), 60000 - ROOM_FOR, 40);
}

struct RobustReceiveLoopTest : ScriptedSender {};

TEST_F(RobustReceiveLoopTest, ABoundReceiverIgnoresOtherSendersUntilItsOwnHasStopped) {
  Listen(Profile::Robust);
  AddThreeFiles();
  Announce();
  auto& stranger = world.AddMachine("stranger", Ipv4(10, 0, 0, 3));
  const auto other = stranger.Seam().network.OpenDatagramSocket();
  other->Send(Build(Stop{}), DATA_GROUP);
  other->Send(Build(Task{}), DATA_GROUP);
  other->Send(Build(Collect{}), DATA_GROUP);
  world.RunFor(10ms);
  EXPECT_EQ(Told(), Lines{"1039 3 6"});
  EXPECT_EQ(TakeReplies(), Lines{});
  EXPECT_EQ(client.GetState().senderAddress, SENDER);
  ToGroup(Stop{});
  other->Send(Build(Task{}), DATA_GROUP);
  world.RunFor(10ms);
  EXPECT_EQ(Told().back(), "1039 0 0");
}

}  // namespace
}  // namespace quorl
