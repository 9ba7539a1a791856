// A transfer as the receive loop sees it: announcements, empty directories, refusals, a master's requests.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct ReceiveLoopTest : BothProfiles {};
INSTANTIATE_TEST_SUITE_P(Profiles, ReceiveLoopTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

/// The same numbers under another name, with a file of the first transfer still open.
struct SecondAnnouncement : ScriptedSender, testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Ways, SecondAnnouncement, testing::Range(0, 3));

TEST_P(SecondAnnouncement, ALaterOrDifferentOneOrOneAfterAStopBeginsAnewWithNoFileOpenAndNoMaster) {
  Listen(Profile::Classic);
  AddFile("\\a.bin", 3 * BLOCK_SIZE);
  Announce();
  SendData(1, 0);
  SendData(1, 1);
  ToReceiver(Master{1});
  world.RunFor(20ms);
  files.clear();
  AddFile("\\b.bin", 3 * BLOCK_SIZE);
  const std::string target = GetParam() == 0 ? "C:\\other" : "C:\\in";
  if (GetParam() == 1) world.RunFor(501ms);
  if (GetParam() == 2) ToGroup(Stop{});
  Announce(target);
  EXPECT_EQ(client.GetState().phase, ReceivePhase::Receiving);
  EXPECT_EQ(client.GetState().blocksStored, 0u);
  TakeReplies();
  SendStream({{1, 1}});
  ToGroup(Finish{0});
  world.RunFor(1s);
  SendResend(1, 1);
  world.RunFor(100ms);
  EXPECT_EQ(TakeReplies(), Lines{"CMD_ANSWER missing blocks=1"});
  Repair();
  EXPECT_EQ(Told().back(), "1040 0 1");
  ExpectFilesAt(target);
}

TEST_P(ReceiveLoopTest, ARefusedTargetEndsTheLoopAndStartsNothing) {
  AddThreeFiles();
  for (const uint32_t status : {1002u, 112u}) {
    Listen(GetParam());
    pc.Disk().SetDriveType(status == 1002 ? DriveType::Remote : DriveType::Fixed);
    pc.Disk().SetFreeBytes(6 * BLOCK_SIZE - 1);
    Announce();
    world.RunFor(1s);
    EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=" + std::to_string(status)));
    EXPECT_EQ(Told().back(), "1040 " + std::to_string(status) + " 0");
    EXPECT_EQ(pc.Messages().back().at - LatestReplyAt(), 100ms);
    EXPECT_EQ(pc.RunningThreads(), 1u);  // the writer, until teardown
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
    DeInit();
  }
}

TEST_P(ReceiveLoopTest, EmptyDirectoriesAreMadeUpToOneThatIsTooLong) {
  Listen(GetParam());
  Announce("C:\\in");
  const std::string longest(260 - std::string("C:\\in").size() - 1, 'x');
  std::vector<NameField> names;
  for (const std::string& name : {std::string("\\a\\b"), "\\" + longest, std::string("\\..\\out"), std::string("\\c"),
                                  "\\x" + longest, std::string("\\never")})
    names.push_back(NameField::From(name));
  Send(BuildEmptyDir(names), DATA_GROUP);
  world.RunFor(200ms);
  EXPECT_EQ(pc.Disk().List("C:\\"), (Lines{"in", "in\\a", "in\\a\\b", "in\\c", "in\\" + longest}));
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=1007"));
  EXPECT_EQ(Told().back(), "1040 1007 0");
  ToGroup(Collect{});
  EXPECT_EQ(TakeReplies(), Lines{});
}

TEST_P(ReceiveLoopTest, WithARootOfItsOwnNothingIsWrittenElsewhere) {
  client.SetReceiveRoot("C:\\home\\box");
  Listen(GetParam());
  AddThreeFiles();
  SendData(1, 0);  // nothing announced: there is no target yet
  Send(BuildEmptyDir(std::vector{NameField::From("\\dir")}), DATA_GROUP);
  Announce("C:\\windows");
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  ExpectFilesAt("C:\\home\\box");
  EXPECT_EQ(pc.Disk().List("C:\\").size(), 6u) << "two directories of the root, one of a file, three files";
}

TEST_F(ScriptedSender, AMasterRepeatsAnUnansweredRequestUntilItIsReleased) {
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
