// StartSend to the end of the stream: what goes out and when, to the millisecond, and what the host is told.
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

using Stream = SenderRoom;
using Lines = std::vector<std::string>;

TEST_F(Stream, AnnouncesStreamsAndFinishesInTheSlowPace) {
  AddReceiver({}, 0);
  WriteThreeFiles();
  machine.Disk().MakeDirectory("C:\\data\\empty");
  Init();
  Select("C:\\data", "\\data\\a");
  server.SetTargetPath(5, "C:\\in");
  const Moment start = world.Now();
  Start();
  EXPECT_EQ(world.Now() - start, 90ms);
  world.RunFor(1300ms);
  EXPECT_EQ(SentSince(start), (Lines{"0 CMD_SERVEROS platform=1",
                                     "10 CMD_SERVEROS platform=1",
                                     "20 CMD_SERVEROS platform=1",
                                     "30 CMD_AOFNAME",
                                     "40 CMD_AOFNAME",
                                     "50 CMD_AOFNAME",
                                     "60 CMD_TASK total blocks=6 file count=3 target folder=5 target path=\"C:\\in\"",
                                     "70 CMD_TASK total blocks=6 file count=3 target folder=5 target path=\"C:\\in\"",
                                     "80 CMD_TASK total blocks=6 file count=3 target folder=5 target path=\"C:\\in\"",
                                     "90 CMD_EMPTYDIR count=1",
                                     "90 CMD_DATA file=1 block=0 last block=0 first sending=1 tail size=5",
                                     "90 CMD_REPORT",
                                     "115 CMD_DATA file=2 block=0 last block=1 first sending=1 tail size=0",
                                     "140 CMD_DATA file=2 block=1 last block=1 first sending=1 tail size=0",
                                     "165 CMD_DATA file=3 block=0 last block=2 first sending=1 tail size=1",
                                     "190 CMD_DATA file=3 block=1 last block=2 first sending=1 tail size=1",
                                     "215 CMD_DATA file=3 block=2 last block=2 first sending=1 tail size=1",
                                     "715 CMD_FINISH status=0",
                                     "725 CMD_FINISH status=0",
                                     "735 CMD_FINISH status=0",
                                     "1245 CMD_MASTER state=1"}));
  EXPECT_EQ(CountDebug("Time = 1155\n"), 1);
}

TEST_F(Stream, TellsTheHostTheSizeAndEveryBlocksNameBeforeTheBlock) {
  AddReceiver();
  WriteThreeFiles();
  Init();
  Select("C:\\data");
  const Moment start = world.Now();
  Start();
  world.RunFor(1s);
  const auto& messages = machine.Messages();
  ASSERT_EQ(messages.size(), 7U);
  EXPECT_EQ(messages[0].number, WM_TASK_INFO);
  EXPECT_EQ(messages[0].wParam, 1U);
  EXPECT_EQ(messages[0].lParam, 6);
  const Lines names = {"\\data\\a", "\\data\\b", "\\data\\b", "\\data\\c", "\\data\\c", "\\data\\c"};
  // A pause stands between the name and its block, so each name comes with the block before.
  const std::vector<Moment> moments = {60ms, 60ms, 60ms, 70ms, 70ms, 80ms};
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(messages[i + 1].number, WM_FILE_NAME);
    EXPECT_EQ(messages[i + 1].text, names[i]);
    EXPECT_EQ(messages[i + 1].at - start, moments[i]) << i;
  }
}

TEST_F(Stream, TheFastPaceSendsPairsUntilASlowReceiverAnswers) {
  AddReceiver();
  ScriptedReceiver& late = AddReceiver();
  machine.Disk().WriteSynthetic("C:\\data\\a", 7 * BLOCK_SIZE, 1);
  Init();
  Select("C:\\data");
  const Moment start = world.Now();
  Start();
  // Answers once more in the pause before the fifth block, and says that it is of the old family.
  world.RunFor(15ms);
  late.machine.Call([&] { late.Reply(Client{0}); });
  world.RunFor(1s);
  std::vector<int64_t> moments;
  for (const auto& sent : world.Net().Sent())
    if (sent.bytes[2] == CMD_DATA) moments.push_back(Milliseconds(sent.at - start));
  EXPECT_EQ(moments, (std::vector<int64_t>{60, 60, 70, 70, 80, 105, 130, 155}));
}

TEST_F(Stream, ARateSpacesBlocksByTheirTimeOnTheWire) {
  machine.Disk().WriteSynthetic("C:\\data\\a", 3 * BLOCK_SIZE, 1);
  Init();
  Select("C:\\data");
  server.SetSendRate(1000);
  const Moment start = world.Now();
  Start();
  world.RunFor(1s);
  std::vector<Duration> moments;
  for (const auto& sent : world.Net().Sent())
    if (sent.bytes[2] == CMD_DATA) moments.push_back(sent.at - start);
  EXPECT_EQ(moments, (std::vector<Duration>{60ms, 60ms + 40'288us, 60ms + 2 * 40'288us, 60ms + 3 * 40'288us}));
}

TEST_F(Stream, TheHeartbeatBeatsEvery5sUntilTheTransferIsOver) {
  AddReceiver({}, 0);
  machine.Disk().WriteSynthetic("C:\\data\\a", 400 * BLOCK_SIZE, 1);
  Init();
  Select("C:\\data");
  Start();
  const Moment start = world.Now();
  world.RunFor(12s);
  std::vector<int64_t> beats;
  for (const auto& sent : world.Net().Sent())
    if (sent.bytes == std::vector<uint8_t>{0x91, 0x02, 0x0E, 0, 0, 0, 0}) {
      EXPECT_EQ(sent.destination, REPORT_GROUP);
      beats.push_back(Milliseconds(sent.at - start));
    }
  EXPECT_EQ(beats, (std::vector<int64_t>{0, 5000, 10000}));
}

TEST_F(Stream, AnEmptySelectionIsAnnouncedAndEnds) {
  Init();
  Start();
  ASSERT_TRUE(RunUntilStatus());
  EXPECT_EQ(Statuses(), std::vector<uint32_t>{0});
  EXPECT_EQ(machine.Messages()[0].lParam, 0);
  EXPECT_EQ(CountDebug("Time = 1030\n"), 1);
  world.RunFor(6s);
  EXPECT_EQ(machine.RunningThreads(), 1U);  // ReplyThread, until its next datagram.
}

TEST_F(Stream, AFileThatCannotBeOpenedEndsTheTransferAfterTheFilesBefore) {
  AddReceiver();
  WriteThreeFiles();
  Init();
  Select("C:\\data");
  machine.Disk().Remove("C:\\data\\b");
  Start();
  ASSERT_TRUE(world.RunUntil([&] { return Statuses().size() == 2; }, 10s));
  EXPECT_EQ(Statuses(), (std::vector<uint32_t>{0, 32}));
  EXPECT_EQ(receivers[0]->Count<Data>(), 1);
  EXPECT_EQ(receivers[0]->Count<Stop>(), 3);
  world.RunFor(6s);
  EXPECT_EQ(receivers[0]->Count<Finish>(), 0);
  EXPECT_EQ(machine.RunningThreads(), 0U);
  EXPECT_EQ(server.GetState().phase, SendPhase::Ended);
}

TEST_F(Stream, AReadErrorInTheMiddleOfAFileEndsItLikeAFileThatCannotBeOpened) {
  AddReceiver();
  machine.Disk().WriteSynthetic("C:\\data\\a", 5 * BLOCK_SIZE, 1);
  Init();
  Select("C:\\data");
  int reads = 0;
  machine.FailEvery([&](std::string_view call) { return call == "files.read" && ++reads == 3; });
  Start();
  ASSERT_TRUE(world.RunUntil([&] { return Statuses().size() == 2; }, 10s));
  EXPECT_EQ(Statuses(), (std::vector<uint32_t>{0, 32}));
  EXPECT_EQ(receivers[0]->Count<Data>(), 2);
}

TEST_F(Stream, AFileThatShrinksGivesShortDatagramsAndIsNamed) {
  machine.Disk().WriteSynthetic("C:\\data\\a", 10 * BLOCK_SIZE, 1);
  Init();
  Select("C:\\data");
  Start();
  world.RunFor(5ms);
  machine.Disk().WriteSynthetic("C:\\data\\a", 3 * BLOCK_SIZE + 7, 1);
  ASSERT_TRUE(RunUntilStatus());
  std::vector<size_t> lengths;
  for (const auto& sent : world.Net().Sent())
    if (sent.bytes[2] == CMD_DATA) lengths.push_back(sent.bytes.size());
  EXPECT_EQ(lengths, (std::vector<size_t>{4796, 4796, 4796, 549, 542, 542, 542, 542, 542, 542, 542}));
  EXPECT_EQ(server.GetState().shrunkFiles, 1U);
  EXPECT_EQ(server.GetState().shrunkName, "\\data\\a");
}

TEST_F(Stream, ABlockThatCannotBeSentIsTheEndOfIt) {
  AddReceiver();
  WriteThreeFiles();
  Init();
  Select("C:\\data");
  Start();
  FailSends();
  world.RunFor(6s);
  EXPECT_EQ(CountDebug("\nQuorl-----Send Data form write file!\n"), 1);
  EXPECT_EQ(CountDebug("\nQuorl-----Send Report Data Failed!\n"), 1);
  EXPECT_EQ(Statuses(), (std::vector<uint32_t>{1003, 1003}));
  EXPECT_EQ(machine.OpenSockets(), 0U);
  EXPECT_EQ(machine.RunningThreads(), 0U);
}

TEST_F(Stream, AnnouncementsThatAllFailAbandonTheStartWithoutAMessage) {
  for (const int failFrom : {1, 4}) {
    Init();
    int sends = 0;
    machine.FailEvery([&](std::string_view call) { return call == "network.send" && ++sends >= failFrom; });
    Start();
    machine.FailEvery({});
    EXPECT_EQ(sends, failFrom + 2);
    EXPECT_EQ(machine.OpenSockets(), 0U);
  }
  EXPECT_EQ(CountDebug("\nQuorl-----Send Server OS Packet Failed!\n"), 1);
  EXPECT_EQ(CountDebug("\nQuorl-----Send  Task Packet Failed!\n"), 1);
  world.RunFor(1s);
  EXPECT_TRUE(machine.Messages().empty());
  EXPECT_EQ(machine.RunningThreads(), 0U);
}

TEST_F(Stream, AThreadThatCannotBeStartedIsWrittenDownAndTheOtherRuns) {
  AddReceiver();
  Init();
  int starts = 0;  // ReplyThread is the first
  machine.FailEvery([&](std::string_view call) { return call == "threads.start" && ++starts == 2; });
  Start();
  EXPECT_EQ(CountDebug("\nQuorl------Create the Send Thread Failed!\n"), 1);
  world.RunFor(1s);
  EXPECT_EQ(machine.RunningThreads(), 2U);
}

TEST_F(Stream, MoreBlocksThan32BitsCountAreRefused) {
  // 2^32 blocks, one too many: two files of 2^31.
  const uint64_t length = (uint64_t{1} << 31) * BLOCK_SIZE - 1;
  machine.Disk().WriteSynthetic("C:\\data\\a", length, 1);
  machine.Disk().WriteSynthetic("C:\\data\\b", length, 2);
  Init();
  Select("C:\\data");
  const Moment start = world.Now();
  Start();
  EXPECT_EQ(CountDebug("\nQuorl-----Too many blocks to send!\n"), 1);
  EXPECT_EQ(Statuses(), std::vector<uint32_t>{32});
  machine.Disk().WriteSynthetic("C:\\data\\b", length - BLOCK_SIZE, 2);
  EXPECT_EQ(SentSince(start), Lines{});
  Start();
  EXPECT_EQ(server.GetState().totalBlocks, UINT32_MAX);
  world.RunFor(1ms);
  EXPECT_EQ(server.GetState().phase, SendPhase::Streaming);
}

TEST_F(Stream, RobustSendsEmptyDirectoriesThreeTimesAndWaitsNoLongerThanForTheAnswers) {
  AddReceiver(Missing({}, 1));
  AddReceiver(Missing({{1, 0}}, 1));
  machine.Disk().WriteSynthetic("C:\\data\\a", 3 * BLOCK_SIZE, 1);
  machine.Disk().MakeDirectory("C:\\data\\empty");
  server.SetProfile(Profile::Robust);
  Init();
  Select("C:\\data");
  const Moment start = world.Now();
  Start();
  ASSERT_TRUE(RunUntilStatus());
  EXPECT_EQ(Statuses(), std::vector<uint32_t>{0});
  const Lines sent = SentSince(start);
  EXPECT_EQ(std::count(sent.begin(), sent.end(), "60 CMD_EMPTYDIR count=1"), 1);
  EXPECT_EQ(std::count(sent.begin(), sent.end(), "70 CMD_EMPTYDIR count=1"), 1);
  EXPECT_EQ(std::count(sent.begin(), sent.end(), "80 CMD_EMPTYDIR count=1"), 1);
  // The stream takes 10 ms, then 500 ms, CMD_FINISH three times, and the answers have come.
  EXPECT_EQ(std::count(sent.begin(), sent.end(), "630 CMD_MASTER state=1"), 1);
}

}  // namespace
}  // namespace quorl
