// StartSend to the end of the stream: what goes out and when, to the millisecond, and what the host is told.
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

using Stream = SenderRoom;

TEST_F(Stream, AnnouncesStreamsAndFinishesInTheSlowPace) {
  machine.Disk().MakeDirectory("C:\\data\\empty");
  machine.Disk().WriteSynthetic("C:\\data\\c", 1, 2);
  Init(1, Profile::Classic, 0);
  server.SetTargetPath(5, "C:\\in");
  const Moment before = world.Now();
  // The blocks are counted right before they are announced.
  world.At(before + 55ms, [this] { machine.Disk().WriteSynthetic("C:\\data\\c", 2 * BLOCK_SIZE + 1, 2); });
  Start();
  world.RunFor(1300ms);
  std::vector<std::string> lines;
  for (const auto& sent : world.Net().Sent()) {
    const std::string text = Describe(sent.bytes);
    if (sent.from == &machine && sent.at >= before)
      lines.push_back(std::to_string(Milliseconds(sent.at - before)) + " " + text.substr(0, text.find(" name=")));
  }
  const std::string task = " CMD_TASK total blocks=6 file count=3 target folder=5 target path=\"C:\\in\"";
  EXPECT_EQ(lines, (std::vector<std::string>{"0 CMD_SERVEROS platform=1",
                                             "10 CMD_SERVEROS platform=1",
                                             "20 CMD_SERVEROS platform=1",
                                             "30 CMD_AOFNAME",
                                             "40 CMD_AOFNAME",
                                             "50 CMD_AOFNAME",
                                             "60" + task,
                                             "70" + task,
                                             "80" + task,
                                             "90 CMD_EMPTYDIR count=1",
                                             "90 CMD_DATA file=1 block=0 last block=0 first sending=1 tail size=5",
                                             "90 CMD_REPORT reserved=0",
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

TEST_F(Stream, TheFastPaceSendsPairsUntilASlowReceiverAnswers) {
  machine.Disk().WriteSynthetic("C:\\data\\a", BLOCK_SIZE, 1);
  Init(2);
  Start();
  // Answers once more in the pause before the fifth block, and says that it is of the old family.
  world.RunFor(15ms);
  Reply(1, Client{0});
  world.RunFor(1s);
  std::vector<int64_t> moments;
  for (const auto& sent : Sent(CMD_DATA)) moments.push_back(Milliseconds(sent.at - start));
  EXPECT_EQ(moments, (std::vector<int64_t>{0, 0, 10, 10, 20, 45, 70}));
}

TEST_F(Stream, AnotherRateHoldsFromTheNextBlockOnWhereTheProfileTakesIt) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    server.SetSendRate(1000);  // 40 ms a block
    Init(1, profile);
    const auto before = Sent(CMD_DATA).size();
    Start();
    world.RunFor(15ms);
    server.SetSendRate(1'000'000);
    world.RunFor(35ms);
    EXPECT_EQ(Sent(CMD_DATA).size() - before, profile == Profile::Robust ? 6U : 3U);
    world.RunFor(3s);
  }
}

TEST_F(Stream, AFileThatShrinksIsNamedAndOfOneThatIsOpenOrRobustTheDatagramsGetShorter) {
  using Lengths = std::vector<size_t>;
  struct Case {
    Profile profile;
    Duration at;  ///< Before the file's turn, or in the midst of it.
    Lengths lengths;
  };
  for (const Case& c : {Case{Profile::Classic, 5ms, Lengths{547, 4796, 542, 4796, 549}},
                        {Profile::Classic, 15ms, Lengths{547, 4796, 542, 4796, 4796, 542}},
                        {Profile::Robust, 5ms, Lengths{547, 4796, 542, 4796, 549, 542}}}) {
    SetUp();
    Init(0, c.profile);
    const auto before = static_cast<std::ptrdiff_t>(Sent(CMD_DATA).size());
    Start();
    world.RunFor(c.at);
    machine.Disk().WriteSynthetic("C:\\data\\c", BLOCK_SIZE + 7, 2);
    world.RunFor(2s);
    Lengths lengths;
    for (const auto& sent : Sent(CMD_DATA)) lengths.push_back(sent.bytes.size());
    EXPECT_EQ(Lengths(lengths.begin() + before, lengths.end()), c.lengths);
    EXPECT_EQ(server.GetState().shrunkFiles, 1U);
    EXPECT_EQ(server.GetState().shrunkName, "\\data\\c");
  }
}

TEST_F(Stream, FilesTravelInTheDisksOwnOrderAndThoseOfARobustSenderByName) {
  machine.Disk().Write("C:\\data\\_latest", "");
  std::string names;
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    Init(0, profile);
    Start();
    world.RunFor(2s);
  }
  for (const auto& sent : Sent(CMD_DATA)) {
    const auto head = ReadFields<BlockHead>(sent.bytes);
    if (head.block == 0) names += head.name.Text().substr(sizeof "\\data");
  }
  EXPECT_EQ(names, "abc_latest_latestabc");
}

TEST_F(Stream, MoreBlocksThanCanBeCountedWrapAndARobustSenderRefusesThem) {
  for (const char* name : {"C:\\data\\x", "C:\\data\\y"})
    machine.Disk().WriteSynthetic(name, (uint64_t{1} << 31) * BLOCK_SIZE, 3);
  Init(1);
  Start();
  EXPECT_EQ(ReadFields<Task>(Sent(CMD_TASK).back().bytes).totalBlocks, 6U + 2U);
  machine.Call([&] { server.StopSend(); });
  Init(1, Profile::Robust);
  const size_t tasks = Sent(CMD_TASK).size();
  Start();
  world.RunFor(10ms);
  EXPECT_EQ(Sent(CMD_TASK).size(), tasks);
  EXPECT_EQ(Statuses().back(), uint32_t{QUORL_STATUS_FILE_UNREADABLE});
  EXPECT_EQ(machine.RunningThreads(), 0U);
}

TEST_F(Stream, ALinkThatStopsHoldsTheStreamUpUntilItGoesOnOrTheHostEndsIt) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    const auto hold = [&] {
      machine.HoldSends(false);
      Init(1, profile);
      Start();
      machine.HoldSends(true);
      world.RunFor(20ms);
    };
    hold();
    const size_t told = Statuses().size(), blocks = Sent(CMD_DATA).size();
    world.RunFor(50s);
    EXPECT_EQ(Statuses().size(), told);
    world.RunFor(11s);
    machine.HoldSends(false);
    world.RunFor(100ms);
    EXPECT_EQ(Sent(CMD_DATA).size() > blocks, profile == Profile::Classic);
    EXPECT_EQ(Statuses().size() - told, profile == Profile::Classic ? 0U : 1U);

    hold();
    const Moment stopped = world.Now();
    machine.Call([&] { server.StopSend(); });
    EXPECT_LE(world.Now() - stopped, 3100ms);
    world.RunFor(10ms);
    EXPECT_EQ(machine.RunningThreads() + machine.OpenSockets(), 0U);

    hold();
    machine.Call([&] { server.DeInitServer(); });
    world.RunFor(10ms);
    EXPECT_EQ(machine.RunningThreads() + machine.OpenSockets(), 0U) << "a close ends a send that waits";
  }
}

TEST_F(Stream, ABlockThatCannotBeSentIsTheEndOfItAndEachClassicThreadSaysSo) {
  machine.Disk().MakeDirectory("C:\\data\\empty");
  for (const bool failsFromTheDirectoriesOn : {false, true}) {
    Init(1);
    if (failsFromTheDirectoriesOn)
      machine.FailEvery([left = 9](std::string_view call) mutable { return call == "network.send" && --left < 0; });
    const size_t before = Statuses().size();
    Start();
    FailSends();
    world.RunFor(6s);
    EXPECT_EQ(Statuses().size() - before, 2U);
    EXPECT_EQ(Statuses().back(), 1003U);
    EXPECT_EQ(machine.OpenSockets() + machine.RunningThreads(), 0U);
    machine.FailEvery({});
  }
  EXPECT_EQ(CountDebug("\nQuorl-----Send Data form write file!\n"), 2);
  EXPECT_EQ(CountDebug("\nQuorl-----Send Report Data Failed!\n"), 2);
}

}  // namespace
}  // namespace quorl
