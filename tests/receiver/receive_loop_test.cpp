// A transfer as the receive loop sees it: announcements, empty directories, refusals, a master's requests.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct ReceiveLoopTest : BothProfiles {};
INSTANTIATE_TEST_SUITE_P(Profiles, ReceiveLoopTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

/// The same numbers under another name, with a file of the first transfer still open. The receiver stays master, as
/// only CMD_MASTER and CMD_RELEASE change that.
struct SecondAnnouncement : ScriptedSender, testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Ways, SecondAnnouncement, testing::Range(0, 3));

TEST_P(SecondAnnouncement, ALaterOrDifferentOneOrOneAfterAStopBeginsAnewWithNoFileOpen) {
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
  EXPECT_EQ(TakeReplies(), (Lines{"CMD_ANSWER missing blocks=1", "CMD_ACK file=2 block=0"}));
  Repair();
  EXPECT_EQ(Told().back(), "1040 0 1");
  ExpectFilesAt(target);
}

TEST_P(ReceiveLoopTest, ARefusedTargetEndsTheLoopAndStartsNothing) {
  AddThreeFiles();
  for (const auto& [status, bytes, names] :
       {std::tuple{1002u, 6, 3u}, {112u, 5, 3u}, {IsRobust() ? 112u : 0u, 6, 2u}, {0u, 6, 3u}}) {
    Listen(GetParam());
    pc.Disk().SetDriveType(status == 1002 ? DriveType::Remote : DriveType::Fixed);
    pc.Disk().SetFreeBytes(static_cast<uint64_t>(bytes) * BLOCK_SIZE);
    pc.Shell().freeNames = names;
    Announce();
    world.RunFor(1s);
    if (status == 0) {
      EXPECT_EQ(client.GetState().phase, ReceivePhase::Receiving) << "just enough";
      DeInit();
      TakeReplies();
      continue;
    }
    EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=" + std::to_string(status)));
    EXPECT_EQ(Told().back(), "1040 " + std::to_string(status) + " 0");
    EXPECT_EQ(pc.Messages().back().at - LatestReplyAt(), 100ms);
    EXPECT_EQ(pc.RunningThreads(), GetParam() == Profile::Robust ? 2u : 1u) << "until teardown";
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
    DeInit();
  }
}

// Of a transfer above 4 GiB the classic check sees what 32 bits hold; and no number of it is held against another.
TEST_P(ReceiveLoopTest, ClassicComparesTheSizeModulo4GiBAndTakesAnyTotals) {
  Listen(GetParam());
  pc.Disk().SetFreeBytes(1000000);
  Task task = TaskFor("C:\\in");
  task.totalBlocks = 1009631;  // 2978 bytes more than 4 GiB
  task.fileCount = 1;
  ToGroup(task);
  EXPECT_EQ(Told(), IsRobust() ? Lines{} : Lines{"1039 1 1009631"});
  world.RunFor(200ms);
  EXPECT_EQ(Told().back(), IsRobust() ? "1040 112 0" : "1039 1 1009631");
  if (IsRobust()) return;
  task.fileCount = 5;
  task.totalBlocks = 2;
  ToGroup(task);
  EXPECT_EQ(Told().back(), "1039 5 2");
  AddFile("\\grown", 9 * BLOCK_SIZE - 1);
  SendData(1, 8);
  ToReceiver(Stop{});
  world.RunFor(10ms);
  EXPECT_EQ(pc.Disk().Length("C:\\in\\grown"), 9 * BLOCK_SIZE - 1);
}

TEST_F(ScriptedSender, AClassicMasterThatHasHeardOfNothingEndsAsIfComplete) {
  Listen(Profile::Classic);
  ToReceiver(Master{0});
  world.RunFor(100ms);
  EXPECT_EQ(TakeReplies(), Lines{"CMD_FINISH status=0"});
  EXPECT_EQ(Told(), Lines{"1040 0 1"});
}

// A late copy moves the position back: what came since is taken for missing, asked for and written again.
TEST_F(ScriptedSender, AClassicReceiverWritesABlockThatItAskedForAgain) {
  Listen(Profile::Classic);
  AddFile("\\a.bin", 12 * BLOCK_SIZE);
  Announce("C:/in");
  for (const uint32_t block : {0, 1, 2, 3, 4, 5, 3, 6, 7, 8, 9, 10, 11, 12}) SendData(1, block);
  pc.Disk().Remove("C:\\in");
  ToGroup(Finish{0});
  world.RunFor(100ms);
  EXPECT_EQ(TakeReplies(), Lines{"CMD_ANSWER missing blocks=2"});
  size_t writes = 0;
  pc.FailEvery([&](std::string_view call) {
    writes += call == "files.write";
    return false;
  });
  EXPECT_EQ(Repair(), (std::vector<LostBlock>{{1, 4}, {1, 5}}));
  EXPECT_EQ(writes, 2u);
  EXPECT_TRUE(client.GetState().complete);
  pc.FailEvery({});
}

TEST_P(ReceiveLoopTest, EmptyDirectoriesAreMadeUpToOneThatIsTooLong) {
  Listen(GetParam());
  Announce("C:\\in\\a");
  // As many as one transfer may have: they do not count for the next one.
  Send(BuildEmptyDir(std::vector(EMPTY_DIR_LIMIT, NameField::From("\\b"))), DATA_GROUP);
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

TEST_F(ScriptedSender, AMasterOfOneTransferIsNoneInTheNext) {
  Transfer(Profile::Robust, {{2, 1}});
  ToReceiver(Master{1});
  world.RunFor(10ms);
  TakeReplies();
  Announce("C:\\next");
  ToGroup(Finish{0});
  world.RunFor(150ms);
  EXPECT_EQ(TakeReplies(), Lines(3, "CMD_ANSWER missing blocks=6"));
  // The same places as in the first one, under other numbers.
  std::swap(files[0], files[1]);
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  EXPECT_TRUE(client.GetState().complete);
}

TEST_F(ScriptedSender, AMasterRepeatsAnUnansweredRequest) {
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
  EXPECT_EQ(TakeReplies().front(), "CMD_ACK file=4 block=0");
}

}  // namespace
}  // namespace quorl
