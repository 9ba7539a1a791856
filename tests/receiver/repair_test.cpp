// The repair as a receiver takes part in it: answers, requests, and no claim of completeness that is not true.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct RepairTest : BothProfiles {
  using Wanted = std::vector<LostBlock>;

  void ExpectComplete() {
    EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 0 1"}));
    ExpectFilesAt("C:\\in");
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Complete);
  }
};
INSTANTIATE_TEST_SUITE_P(Profiles, RepairTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(RepairTest, AReleaseWithTheSecondPassByteIsNoCompletionWhileBlocksAreMissing) {
  Transfer(GetParam(), {{3, 1}});
  ToReceiver(Release{0, 1});
  world.RunFor(100ms);
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 1460 0"}));
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
  EXPECT_FALSE(client.GetState().complete);
}

TEST_P(RepairTest, ASlowWriterMakesNobodyWaitAndOneOfItsBlocksIsAskedForMeanwhile) {
  pc.Disk().SetWriteTime(1s);
  Transfer(GetParam());
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
  Transfer(Profile::Robust, {{2, 1}});
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

}  // namespace
}  // namespace quorl
