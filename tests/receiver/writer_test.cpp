// What is written together, files that cannot be opened, and how a transfer with one ends.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct WriterTest : BothProfiles {
  size_t CountTold(const std::string& line) const {
    const Lines told = Told();
    return static_cast<size_t>(std::count(told.begin(), told.end(), line));
  }

  /// One file has failed for good, and the sender lets the receiver go.
  void ExpectEndsWithOneUnwritten() {
    TakeReplies();
    EXPECT_EQ(Repair(), std::vector<LostBlock>{});
    Lines expected = {"CMD_ACK file=4 block=0"};
    const Lines finish = Copies(GetParam(), "CMD_FINISH status=1001");
    expected.insert(expected.end(), finish.begin(), finish.end());
    EXPECT_EQ(TakeReplies(), expected);
    EXPECT_EQ(Told().back(), "1040 1460 0") << "the end, after what went on";
    EXPECT_EQ(client.GetState().firstFailure, 1001u);
    EXPECT_EQ(client.GetState().failedFiles, 1u);
    EXPECT_EQ(CountTold("1040 0 1"), 0u);
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
    world.RunFor(1s);
    EXPECT_TRUE(HasDebugLine("\nQuorl----transmission over---------WriteThread\n"));
  }
};
INSTANTIATE_TEST_SUITE_P(Profiles, WriterTest, testing::Values(Profile::Classic, Profile::Robust), ProfileName);

TEST_P(WriterTest, AFileThatCannotBeOpenedIsReportedAndNeverAskedForAgain) {
  pc.Disk().RefuseName([](const std::string& name) { return name == "two.bin"; });
  Transfer(GetParam());
  world.RunFor(500ms);
  const size_t reports = IsRobust() ? 1 : 2;  // once a file, or once a block
  EXPECT_EQ(CountTold("1040 1001 0"), reports);
  const Lines replies = TakeReplies();
  EXPECT_EQ(std::count(replies.begin(), replies.end(), "CMD_FINISH status=1001"), IsRobust() ? 3 : 2);
  EXPECT_EQ(replies.back(), "CMD_ANSWER missing blocks=2");
  ExpectEndsWithOneUnwritten();
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

TEST_P(WriterTest, AFileThatWasRemovedBetweenTwoOfItsBlocksIsNotMadeAgain) {
  Transfer(GetParam(), {{2, 0}, {3, 1}, {3, 2}});
  world.RunFor(500ms);
  EXPECT_EQ(CountTold("1040 1001 0"), 0u);
  pc.Disk().Remove("C:\\in\\sub\\three.bin");
  for (const uint32_t block : {1, 2}) SendResend(3, block);
  SendResend(2, 0);
  world.RunFor(500ms);
  EXPECT_EQ(CountTold("1040 1001 0"), 1u);
  EXPECT_FALSE(pc.Disk().Read("C:\\in\\sub\\three.bin"));
  ExpectEndsWithOneUnwritten();
}

}  // namespace
}  // namespace quorl
