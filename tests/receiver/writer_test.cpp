// What is written together, files that cannot be opened, and how a transfer with one ends.
#include "scripted_sender.h"

namespace quorl {
namespace {

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
