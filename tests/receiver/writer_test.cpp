// Files that cannot be opened, written or closed; the end of a transfer; the file to open.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct WriterTest : BothProfiles {
  bool IsRobust() const { return GetParam() == Profile::Robust; }

  size_t CountTold(const std::string& line) const {
    const Lines told = Told();
    return static_cast<size_t>(std::count(told.begin(), told.end(), line));
  }

  /// The transfer has failed for good, and the sender lets the receiver go.
  void ExpectEndsWithStatus(uint32_t status) {
    TakeReplies();
    EXPECT_EQ(Repair(), std::vector<LostBlock>{});
    Lines expected = {"CMD_ACK file=4 block=0"};
    const Lines finish = Copies(GetParam(), "CMD_FINISH status=" + std::to_string(status));
    expected.insert(expected.end(), finish.begin(), finish.end());
    EXPECT_EQ(TakeReplies(), expected);
    EXPECT_EQ(Told().back(), "1040 1460 0") << "the end, after what went on";
    EXPECT_EQ(client.GetState().firstFailure, status);
    EXPECT_EQ(CountTold("1040 0 1"), 0u);
    EXPECT_EQ(client.GetState().phase, ReceivePhase::Failed);
    EXPECT_FALSE(client.GetState().complete);
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
  EXPECT_EQ(client.GetState().failedFiles, 1u);
  EXPECT_EQ(client.GetState().firstFailure, 1001u);
  ExpectEndsWithStatus(1001);
}

TEST_P(WriterTest, AFailedWriteOrCloseIsToldOnceAndTheOtherFilesArrive) {
  for (const char* failing : {"files.write", "files.close"}) {
    pc.FailEvery([failing, n = 0](std::string_view call) mutable { return call == failing && ++n == 2; });
    Transfer(GetParam());
    world.RunFor(500ms);
    EXPECT_EQ(client.GetState().failedFiles, 1u) << failing;
    ExpectEndsWithStatus(1001);
    DeInit();
    files.clear();
  }
  EXPECT_EQ(CountTold("1040 1001 0"), 2u);
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
  EXPECT_EQ(client.GetState().failedFiles, 1u);
  ExpectEndsWithStatus(1001);
}

}  // namespace
}  // namespace quorl
