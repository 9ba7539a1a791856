// The repair as a receiver takes part in it: answers, requests, and no claim of completeness that is not true.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct RepairTest : BothProfiles {
  using Wanted = std::vector<LostBlock>;

  /// The stream with losses, its end, the repair; what was asked for.
  Wanted Transfer(const std::vector<LostBlock>& lost, bool finishArrives = true) {
    Listen(GetParam());
    AddThreeFiles();
    Announce();
    SendStream(lost);
    if (finishArrives) ToGroup(Finish{0});
    world.RunFor(500ms);
    return Repair();
  }

  void ExpectComplete() {
    EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 0 1"}));
    ExpectFilesAt("C:\\in");
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Complete);
  }
};
INSTANTIATE_TEST_SUITE_P(Profiles, RepairTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(RepairTest, AnswersWithWhatIsMissingAsksForItAndLeavesWhenItHasEverything) {
  EXPECT_EQ(Transfer({{2, 1}, {3, 1}}), (Wanted{{2, 1}, {3, 1}}));
  Lines expected = Copies(GetParam(), "CMD_ANSWER missing blocks=2");
  const Lines requests = {"CMD_ACK file=2 block=1", "CMD_ACK file=3 block=1", "CMD_ACK file=4 block=0"};
  for (const Lines& more : {requests, Copies(GetParam(), "CMD_FINISH status=0")})
    expected.insert(expected.end(), more.begin(), more.end());
  EXPECT_EQ(TakeReplies(), expected);
  ExpectComplete();
}

TEST_P(RepairTest, LossesAtTheStartOfAFileComeBack) {
  EXPECT_EQ(Transfer({{1, 0}, {2, 0}, {3, 0}}), (Wanted{{1, 0}, {2, 0}, {3, 0}}));
  ExpectComplete();
}

TEST_P(RepairTest, AnEntirelyLostStreamComesBack) {
  EXPECT_EQ(Transfer({{1, 0}, {2, 0}, {2, 1}, {3, 0}, {3, 1}, {3, 2}}).size(), 6u);
  ExpectComplete();
}

TEST_P(RepairTest, ALostFileOverAnOldOneComesBackWhole) {
  pc.Disk().Write("C:\\in\\sub\\three.bin", std::string(30000, 'o'));
  Transfer({{3, 0}, {3, 1}, {3, 2}});
  EXPECT_EQ(Told().back(), "1040 0 1");
  const auto content = pc.Disk().Read("C:\\in\\sub\\three.bin");
  ASSERT_TRUE(content && content->size() == 30000);
  EXPECT_TRUE(std::equal(files[2].content.begin(), files[2].content.end(), content->begin()));
}

TEST_P(RepairTest, OneLateBlockOfALostFileDoesNotHideTheOthers) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{3, 0}, {3, 1}, {3, 2}});
  ToGroup(Finish{0});
  world.RunFor(200ms);
  SendData(3, 1);
  world.RunFor(300ms);
  EXPECT_EQ(Repair(), (Wanted{{3, 0}, {3, 2}}));
  ExpectComplete();
}

TEST_P(RepairTest, WithoutTheEndOfTheStreamALostTailIsStillAskedFor) {
  Transfer({{2, 1}, {3, 0}, {3, 1}, {3, 2}}, false);
  ExpectComplete();
}

TEST_P(RepairTest, MasterZeroAtAReceiverThatMissesBlocksMakesItMaster) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{3, 2}});
  ToReceiver(Master{0});
  world.RunFor(20ms);
  EXPECT_EQ(TakeReplies(), Lines{"CMD_ACK file=3 block=2"});
  EXPECT_EQ(Told(), Lines{"1039 3 6"});
}

TEST_P(RepairTest, AReleaseWithTheSecondPassByteIsNoCompletionWhileBlocksAreMissing) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{3, 1}});
  ToGroup(Finish{0});
  ToReceiver(Release{0, 1});
  world.RunFor(100ms);
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 1460 0"}));
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
  EXPECT_FALSE(client.GetState().complete);
}

TEST_P(RepairTest, AReleaseAfterEverythingHasComeCompletesWithoutFinish) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{3, 1}});
  ToGroup(Finish{0});
  ToReceiver(Release{1, 0});  // still missing: no longer master, and no end
  SendResend(3, 1);
  world.RunFor(100ms);
  TakeReplies();
  ToReceiver(Release{1, 0});
  world.RunFor(100ms);
  EXPECT_EQ(TakeReplies(), Lines{});
  ExpectComplete();
}

TEST_P(RepairTest, ABystanderStoresWhatItMissesAndSendsNothing) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{3, 1}});
  ToGroup(Finish{0});
  world.RunFor(200ms);
  TakeReplies();
  SendResend(1, 0);  // it has that
  SendResend(3, 1);
  world.RunFor(10ms);
  EXPECT_EQ(TakeReplies(), Lines{});
  EXPECT_TRUE(HasDebugLine("\nQuorl-----Client Send ACK !\n"));
  EXPECT_EQ(client.GetState().blocksMissing, 0u);
  EXPECT_EQ(Repair(), Wanted{});
  ExpectComplete();
}

TEST_P(RepairTest, AResentFirstBlockOfAFileThatDoesNotExistEntersItsOtherBlocks) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{3, 0}, {3, 1}, {3, 2}});
  ToGroup(Finish{0});
  world.RunFor(200ms);
  EXPECT_EQ(client.GetState().blocksMissing, 1u);
  SendResend(3, 0);
  world.RunFor(10ms);
  EXPECT_EQ(client.GetState().blocksMissing, 2u);
  EXPECT_TRUE(HasDebugLine("Process Lost"));
}

TEST_P(RepairTest, ALateCopyThatMovesThePositionBackIsRepairedLikeALoss) {
  Listen(GetParam());
  AddFile("\\a.bin", 10 * BLOCK_SIZE - 1);
  Announce();
  for (const uint32_t block : {0, 1, 2, 3, 4, 5, 3, 6, 7, 8, 9}) SendData(1, block);
  ToGroup(Finish{0});
  world.RunFor(500ms);
  EXPECT_EQ(Repair(), (Wanted{{1, 4}, {1, 5}}));
  EXPECT_EQ(Told().back(), "1040 0 1");
  ExpectFilesAt("C:\\in");
}

TEST_P(RepairTest, ASlowWriterMakesNobodyWaitAndOneOfItsBlocksIsAskedForMeanwhile) {
  pc.Disk().SetWriteTime(1s);
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(480ms);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_ANSWER missing blocks=1"));
  ToReceiver(Master{1});
  for (int i = 0; i < 8 && LatestAck().value_or(Ack{}).file != 4; ++i) {
    if (const auto ack = LatestAck()) SendResend(ack->file, ack->block);
    world.RunFor(500ms);
  }
  EXPECT_EQ(LatestAck().value_or(Ack{}).file, 4u) << "what was resent is not written again";
  ToReceiver(Master{0});
  world.RunFor(500ms);
  ExpectComplete();
}

TEST_P(RepairTest, OfFewBlocksNoneIsCalledMissingBecauseTheDiskIsSlow) {
  pc.Disk().SetWriteTime(1s);
  Listen(GetParam());
  AddFile("\\a.bin", 10);
  AddFile("\\b.bin", 10);
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(480ms);
  EXPECT_EQ(TakeReplies(), Lines{});
  ToReceiver(Master{1});
  world.RunFor(10ms);
  EXPECT_EQ(LatestAck().value_or(Ack{}).file, 1u);
}

TEST_P(RepairTest, AResentBlockThatContradictsItsFileIsAnsweredAsOneThatIsHereAndNeverStored) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{2, 1}, {3, 1}});
  const std::vector<File> honest = files;
  files[1] = {honest[1].name, sim::Bytes(3 * BLOCK_SIZE)};
  SendResend(2, 1);
  world.RunFor(200ms);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_ANSWER missing blocks=2"));
  ToReceiver(Master{1});
  files[0].name = "\\evil.bin";
  SendResend(1, 0);
  world.RunFor(10ms);
  EXPECT_EQ(TakeReplies(), Lines(2, "CMD_ACK file=2 block=1")) << "a master asks again";
  SendResend(1, 0);
  SendResend(2, 1);
  world.RunFor(10ms);
  EXPECT_EQ(client.GetState().blocksMissing, 2u);
  files = honest;
  EXPECT_EQ(Repair(), (Wanted{{2, 1}, {3, 1}}));
  ExpectComplete();
}

TEST_P(RepairTest, AnIdleReceiverNamedMasterWithZeroEndsByTheRulesOfItsProfile) {
  Listen(GetParam());
  ToReceiver(Master{0});
  world.RunFor(1s);
  const bool classic = GetParam() == Profile::Classic;
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), classic ? "CMD_FINISH status=0" : "CMD_FINISH status=1004"));
  EXPECT_EQ(Told(), Lines{classic ? "1040 1460 0" : "1040 1004 0"});
  EXPECT_FALSE(client.GetState().complete);
}

TEST_P(RepairTest, AReceiverThatMissedTheAnnouncementNeverReportsCompletion) {
  Listen(GetParam());
  AddThreeFiles();
  SendStream();
  ToGroup(Finish{0});
  ToReceiver(Master{1});
  world.RunFor(1s);
  const bool classic = GetParam() == Profile::Classic;
  EXPECT_EQ(TakeReplies(), classic ? Lines{"CMD_ACK file=1 block=0"} : Copies(GetParam(), "CMD_FINISH status=1004"));
  ToReceiver(classic ? Master{0} : Master{1});
  world.RunFor(1s);
  EXPECT_EQ(TakeReplies(), classic ? Lines{"CMD_FINISH status=1004"} : Lines{});
  EXPECT_EQ(Told(), Lines{classic ? "1040 1460 0" : "1040 1004 0"});
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
}

struct RobustRepairTest : ScriptedSender {};

TEST_F(RobustRepairTest, AMasterRepeatsAnUnansweredRequestUntilItIsReleased) {
  Listen(Profile::Robust);
  AddThreeFiles();
  Announce();
  SendStream({{2, 1}});
  ToGroup(Finish{0});
  world.RunFor(200ms);
  TakeReplies();
  const Moment named = world.Now();
  ToReceiver(Master{1});
  world.RunFor(980ms);
  std::vector<Duration> at;
  for (const auto& sent : world.Net().Sent())
    if (sent.from == &pc && sent.at > named) at.push_back(sent.at - named - 100us);  // less the way to the receiver
  EXPECT_EQ(at, (std::vector<Duration>{0ms, 200ms, 600ms}));
  EXPECT_EQ(TakeReplies(), Lines(3, "CMD_ACK file=2 block=1"));
  SendResend(2, 1);
  world.RunFor(20ms);
  EXPECT_EQ(TakeReplies(), Lines{"CMD_ACK file=4 block=0"});
  ToReceiver(Release{0, 0});
  world.RunFor(2s);
  EXPECT_EQ(TakeReplies(), Lines{});
}

TEST_F(RobustRepairTest, RequestsFollowTheMeasuredRoundTrip) {
  Listen(Profile::Robust);
  AddFile("\\a.bin", 20 * BLOCK_SIZE);
  Announce();
  SendData(1, 20);
  ToGroup(Finish{0});
  world.RunFor(200ms);
  ToReceiver(Master{1});
  world.RunFor(9ms);
  for (uint32_t block = 0; block < 10; ++block) {
    SendResend(1, block);
    world.RunFor(9ms);
  }
  TakeReplies();
  world.RunFor(40ms);
  const Lines repeated = TakeReplies();
  ASSERT_FALSE(repeated.empty());
  EXPECT_EQ(repeated.front(), "CMD_ACK file=1 block=10");
}

TEST_F(RobustRepairTest, AStoppedSenderIsAskedNoMore) {
  Listen(Profile::Robust);
  AddThreeFiles();
  Announce();
  SendStream({{2, 1}, {3, 1}});
  ToReceiver(Master{1});
  world.RunFor(20ms);
  EXPECT_EQ(TakeReplies(), Lines{"CMD_ACK file=2 block=1"});
  ToGroup(Stop{});
  SendResend(2, 1);  // on its way since before the stop
  world.RunFor(2s);
  EXPECT_EQ(TakeReplies(), Copies(Profile::Robust, "CMD_ANSWER missing blocks=2"));
}

TEST_F(RobustRepairTest, ASilentSenderIsAskedNoMore) {
  Listen(Profile::Robust);
  AddThreeFiles();
  Announce();
  SendStream({{2, 1}});
  ToReceiver(Master{1});
  world.RunFor(13s);  // the heartbeat is missed
  EXPECT_EQ(Told().back(), "1040 1004 0");
  TakeReplies();
  world.RunFor(10s);
  EXPECT_EQ(TakeReplies(), Lines{});
}

}  // namespace
}  // namespace quorl
