// Files that cannot be opened, written or closed; the end of a transfer; the file to open.
#include "scripted_sender.h"

namespace quorl {
namespace {

struct WriterTest : BothProfiles {
  void Transfer() {
    AddThreeFiles();
    Announce();
    SendStream();
    ToGroup(Finish{0});
    world.RunFor(500ms);
  }

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
  Listen(GetParam());
  Transfer();
  const size_t reports = IsRobust() ? 1 : 2;  // once a file, or once a block
  EXPECT_EQ(CountTold("1040 1001 0"), reports);
  Lines expected;
  for (size_t i = 0; i < reports; ++i)
    for (const std::string& copy : Copies(GetParam(), "CMD_FINISH status=1001")) expected.push_back(copy);
  for (const std::string& copy : Copies(GetParam(), "CMD_ANSWER missing blocks=2")) expected.push_back(copy);
  EXPECT_EQ(TakeReplies(), expected);
  EXPECT_EQ(client.GetState().failedFiles, 1u);
  EXPECT_EQ(client.GetState().firstFailure, 1001u);
  ExpectEndsWithStatus(1001);
}

TEST_P(WriterTest, AFullDiskIsReportedOnceAFile) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  pc.Disk().SetFreeBytes(BLOCK_SIZE);  // somebody else has filled it
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(500ms);
  EXPECT_EQ(CountTold("1040 112 0"), 2u);
  EXPECT_EQ(client.GetState().failedFiles, 2u);
  ExpectEndsWithStatus(112);
}

TEST_P(WriterTest, AnyOtherFailedWriteIs1001) {
  Listen(GetParam());
  pc.FailEvery([n = 0](std::string_view call) mutable { return call == "files.write" && ++n == 2; });
  Transfer();
  EXPECT_EQ(CountTold("1040 1001 0"), 1u);
  ExpectEndsWithStatus(1001);
}

TEST_P(WriterTest, AFileThatFailsWhenItIsClosedIsNotComplete) {
  Listen(GetParam());
  pc.FailEvery([n = 0](std::string_view call) mutable { return call == "files.close" && ++n == 3; });
  Transfer();
  EXPECT_EQ(CountTold("1040 1001 0"), 1u);
  ExpectEndsWithStatus(1001);
}

TEST_P(WriterTest, AFileThatIsRemovedWhileItIsWrittenIsNotComplete) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{3, 2}});
  SendData(3, 0);  // writes what was pending
  world.RunFor(20ms);
  EXPECT_EQ(client.GetState().blocksStored, 5u);
  pc.Disk().Remove("C:\\in\\sub\\three.bin");
  SendData(3, 2);
  ToGroup(Finish{0});
  world.RunFor(500ms);
  EXPECT_EQ(CountTold("1040 1001 0"), 1u);
  ExpectEndsWithStatus(1001);
}

TEST_P(WriterTest, AFileThatWasRemovedBetweenTwoOfItsBlocksIsNotMadeAgain) {
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendStream({{2, 0}, {3, 1}, {3, 2}});
  ToGroup(Finish{0});
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

TEST_P(WriterTest, AFailureOfAnEarlierTransferIsNotToldInTheNext) {
  if (!IsRobust()) return;  // to say it once takes no time
  pc.Disk().RefuseName([](const std::string& name) { return name == "two.bin"; });
  Listen(GetParam());
  AddThreeFiles();
  Announce();
  SendData(2, 0);
  world.RunFor(5ms);
  EXPECT_EQ(TakeReplies().size(), 1u) << "the first of three copies";
  files.clear();
  AddFile("\\one.bin", 10);
  Announce();
  SendStream();
  ToGroup(Finish{0});
  world.RunFor(1s);
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1039 1 1", "1040 0 1"}));
  EXPECT_EQ(client.GetState().firstFailure, 0u);
}

TEST_P(WriterTest, ATooLongNameIs1007) {
  Listen(GetParam());
  AddFile("\\" + std::string(255, 'n'), 10);
  Announce();
  SendStream();
  world.RunFor(100ms);
  EXPECT_EQ(CountTold("1040 1007 0"), 1u);
  EXPECT_EQ(TakeReplies(), Copies(GetParam(), "CMD_FINISH status=1007"));
  EXPECT_EQ(pc.Disk().List("C:\\in"), Lines{});
}

TEST_P(WriterTest, AMasterWhoseFileFailsMovesOnToTheNextFile) {
  Listen(GetParam());
  AddThreeFiles();
  AddFile("\\four.bin", 3 * BLOCK_SIZE);
  Announce();
  SendStream({{3, 1}, {3, 2}, {4, 1}});
  ToGroup(Finish{0});
  world.RunFor(300ms);
  ToReceiver(Master{1});
  world.RunFor(20ms);
  EXPECT_EQ(LatestAck()->block, 1u);
  pc.FailEvery([](std::string_view call) { return call == "files.write"; });
  SendResend(3, 1);  // fails, while (3, 2) has already been asked for
  world.RunFor(100ms);
  pc.FailEvery({});
  SendResend(3, 2);
  world.RunFor(20ms);
  EXPECT_EQ(LatestAck()->file, 4u);
  EXPECT_EQ(LatestAck()->block, 1u);
}

TEST_P(WriterTest, BlocksOfAFileThatFailedToOpenDoNotCloseTheOneBeforeForGood) {
  pc.Disk().RefuseName([](const std::string& name) { return name == "two.bin"; });
  Listen(GetParam());
  AddFile("\\one.bin", 3 * BLOCK_SIZE);
  AddFile("\\two.bin", 10);
  Announce();
  for (const uint32_t block : {0, 1, 2}) SendData(1, block);
  SendData(2, 0);
  SendData(1, 3);  // late
  world.RunFor(100ms);
  EXPECT_EQ(client.GetState().blocksStored, 4u);
}

TEST_P(WriterTest, AFileNamedToBeOpenedIsSentWithItsPath) {
  Listen(GetParam());
  ToGroup(AutoOpenName{NameField::From("\\one.bin")});
  Transfer();
  EXPECT_EQ(Told(), (Lines{"1039 3 6", "1040 0 C:\\in\\one.bin"}));
  EXPECT_TRUE(pc.Messages().back().sent);
}

TEST_P(WriterTest, WithoutAWindowNothingIsToldAndTheWriterEndsAllTheSame) {
  window = GetParam() == Profile::Classic ? nullptr : window;
  Listen(GetParam());
  pc.DestroyWindow(window);
  Transfer();
  EXPECT_EQ(Told(), Lines{});
  EXPECT_TRUE(HasDebugLine("\nQuorl----transmission over---------WriteThread\n"));
  EXPECT_TRUE(client.GetState().complete);
}

}  // namespace
}  // namespace quorl
