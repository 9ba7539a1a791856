// A transfer as a receiver lives it: set-up and teardown, announcements, empty directories, refusals, a master's
// requests, what is written together, files that cannot be opened, and the watch on the heartbeat, to the millisecond.
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

// Of a transfer above 4 GiB the classic check sees what 32 bits hold.
TEST_P(ReceiveLoopTest, ClassicComparesTheSizeModulo4GiB) {
  Listen(GetParam());
  pc.Disk().SetFreeBytes(1000000);
  Task task = TaskFor("C:\\in");
  task.totalBlocks = 1009631;  // 2978 bytes more than 4 GiB
  task.fileCount = 1;
  ToGroup(task);
  EXPECT_EQ(Told(), IsRobust() ? Lines{} : Lines{"1039 1 1009631"});
  world.RunFor(200ms);
  EXPECT_EQ(Told().back(), IsRobust() ? "1040 112 0" : "1039 1 1009631");
}

TEST_F(ScriptedSender, AClassicMasterThatHasHeardOfNothingEndsAsIfComplete) {
  Listen(Profile::Classic);
  ToReceiver(Master{0});
  world.RunFor(100ms);
  EXPECT_EQ(TakeReplies(), Lines{"CMD_FINISH status=0"});
  EXPECT_EQ(Told(), Lines{"1040 0 1"});
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

struct WriterTest : BothProfiles {
  size_t CountTold(const std::string& line) const {
    const Lines told = Told();
    return static_cast<size_t>(std::count(told.begin(), told.end(), line));
  }

  /// One file has failed for good. Classic ends all the same as if it had not; the state tells both the truth.
  void ExpectEndsWithOneUnwritten(const std::string& classicReply) {
    const Lines replies = TakeReplies();
    EXPECT_EQ(replies.back(), IsRobust() ? "CMD_FINISH status=1001" : classicReply);
    EXPECT_EQ(Told().back(), IsRobust() ? "1040 1460 0" : "1040 0 1") << "the end, after what went on";
    EXPECT_EQ(client.GetState().firstFailure, 1001u);
    EXPECT_EQ(client.GetState().failedFiles, 1u);
    EXPECT_FALSE(client.GetState().complete);
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
    EXPECT_TRUE(HasDebugLine("\nQuorl----transmission over---------WriteThread\n"));
  }
};
INSTANTIATE_TEST_SUITE_P(Profiles, WriterTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(WriterTest, AFileThatCannotBeOpenedIsReportedAndNeverAskedForAgain) {
  pc.Disk().RefuseName([](const std::string& name) { return name == "two.bin"; });
  Transfer(GetParam());
  world.RunFor(1s);
  const size_t reports = IsRobust() ? 1 : 2;  // once a file, or once a block
  EXPECT_EQ(CountTold("1040 1001 0"), reports);
  const Lines replies = TakeReplies();
  EXPECT_EQ(std::count(replies.begin(), replies.end(), "CMD_FINISH status=1001"), IsRobust() ? 3 + 7 : 2);
  EXPECT_EQ(std::count(replies.begin(), replies.end(), "CMD_ANSWER missing blocks=2"), IsRobust() ? 7 : 0);
  repliesTaken = 0;
  ExpectEndsWithOneUnwritten("CMD_ANSWER missing blocks=0");
}

TEST_F(ScriptedSender, AFailureIsNotToldOfATransferThatHasBegunMeanwhile) {
  pc.Disk().RefuseName([](const std::string& name) { return name == "one.bin"; });
  Begin(Profile::Robust);
  SendData(1, 0);
  world.RunFor(5ms);
  Announce("C:\\elsewhere");
  world.RunFor(100ms);
  EXPECT_EQ(Told().back().substr(0, 4), "1039") << "the sender is told three times, and then the host would be";
  EXPECT_EQ(TakeReplies().back(), "CMD_FINISH status=1001");
}

// The blocks of the file that was open before a failed one are dropped by the classic rules until another is opened.
TEST_P(WriterTest, AFailedOpenTakesTheOpenFileWithItInClassic) {
  pc.Disk().RefuseName([](const std::string& name) { return name == "three.bin"; });
  Transfer(GetParam(), {{2, 1}});
  world.RunFor(100ms);
  SendResend(2, 1);
  world.RunFor(1s);
  EXPECT_EQ(pc.Disk().Read("C:\\in\\two.bin") == files[1].content, IsRobust());
  EXPECT_FALSE(client.GetState().complete);
}

TEST_P(WriterTest, BlocksInOrderAreWrittenThirtyAtATimeAndResentOnesAlone) {
  size_t writes = 0;
  pc.FailEvery([&](std::string_view call) {
    writes += call == "files.write";
    return false;
  });
  Listen(GetParam());
  AddFile("\\a.bin", 99 * BLOCK_SIZE + 7);
  Announce();
  SendStream({{1, 50}, {1, 51}});
  ToGroup(Finish{0});
  world.RunFor(200ms);
  EXPECT_EQ(writes, 4u) << "0 to 29, 30 to 49, 52 to 81, 82 to 99";
  for (const uint32_t block : {50, 51}) SendResend(1, block);
  world.RunFor(10ms);
  EXPECT_EQ(writes, 6u);
  ExpectFilesAt("C:\\in");
  // The machine runs on until the fixture ends.
  pc.FailEvery({});
}

TEST_P(WriterTest, AFileThatWasRemovedBetweenTwoOfItsBlocksIsNeverComplete) {
  Transfer(GetParam(), {{2, 0}, {3, 1}, {3, 2}});
  world.RunFor(500ms);
  EXPECT_EQ(CountTold("1040 1001 0"), 0u);
  pc.Disk().Remove("C:\\in\\sub\\three.bin");
  SendResend(2, 0);
  for (const uint32_t block : {1, 2}) SendResend(3, block);
  world.RunFor(500ms);
  Repair();
  world.RunFor(1s);
  EXPECT_EQ(pc.Disk().Read("C:\\in\\sub\\three.bin").has_value(), !IsRobust()) << "classic makes it again";
  EXPECT_FALSE(client.GetState().complete);
  EXPECT_EQ(CountTold("1040 1001 0"), IsRobust() ? 1u : 0u) << "it could be opened each time";
  EXPECT_EQ(Told().back(), IsRobust() ? "1040 1460 0" : "1040 0 1");
}

}  // namespace
}  // namespace quorl
