// InitServer with every call that it makes to the machine failing in turn; StartSend to the end of the stream: what
// goes out and when, to the millisecond, and what the host is told.
#include <gtest/gtest.h>
#include <vector>

#include "protocol/wire_size.h"
#include "sender/pacer.h"
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;
using Stream = SenderRoom;

/// Sends one datagram for each entry of `fast`, each `work` after it may leave; the moments at which they left.
std::vector<Moment> Departures(Pacer& pacer, const std::vector<bool>& fast, Duration work, Moment now = 1s) {
  std::vector<Moment> left;
  for (const bool fastPacing : fast) {
    if (const auto next = pacer.NextSend(fastPacing)) now = std::max(now, *next);
    now += work;
    pacer.Sent(now, 4796);
    left.push_back(now);
  }
  return left;
}

TEST(RatePacer, DatagramsAreAsFarApartAsTheyTakeOnTheWireAndNeverCloser) {
  // 4796 bytes are four fragments: 4804 bytes of payload and 58 bytes around each, 5036 bytes, 40288 bits.
  ASSERT_EQ(BytesOnWire(4796), 5036U);
  Pacer rounded(30'000);  // 1342933.3 ns
  EXPECT_EQ(Departures(rounded, std::vector(2, false), 0ns)[1], 1s + 1'342'934ns);
  Pacer exact(100'000);
  const auto left = Departures(exact, std::vector(1001, false), 150us);
  EXPECT_EQ(left.back() - 150us - left.front(), 1000 * 402'880ns);
}

TEST(RatePacer, WhoComesLateCatchesUpAtMost2MsWorth) {
  Pacer pacer(100'000);
  Departures(pacer, {false}, 0ns);
  // A second late: four of 0.4 ms fit into 2 ms and leave at once, the fifth waits for its place.
  const auto late = Departures(pacer, std::vector(6, false), 0ns, 2s);
  EXPECT_EQ(late[3], 2s);
  EXPECT_GT(late[4], 2s);
  EXPECT_EQ(late[5] - late[4], 402'880ns);
}

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
  // Before the file's turn, or in the midst of it.
  for (const auto& [profile, at, expected] :
       {std::tuple{Profile::Classic, 5ms, Lengths{547, 4796, 542, 4796, 549, 546}},
        {Profile::Classic, 15ms, Lengths{547, 4796, 542, 4796, 4796, 542, 546}},
        {Profile::Robust, 5ms, Lengths{547, 4796, 542, 4796, 549, 542, 546}}}) {
    SetUp();
    machine.Disk().Write("C:\\data\\d", "later");
    Init(0, profile);
    const auto before = static_cast<std::ptrdiff_t>(Sent(CMD_DATA).size());
    Start();
    world.RunFor(at);
    machine.Disk().WriteSynthetic("C:\\data\\c", BLOCK_SIZE + 7, 2);
    machine.Disk().Write("C:\\data\\d", "late");
    world.RunFor(2s);
    Lengths lengths;
    for (const auto& sent : Sent(CMD_DATA)) lengths.push_back(sent.bytes.size());
    EXPECT_EQ(Lengths(lengths.begin() + before, lengths.end()), expected);
    EXPECT_EQ(server.GetState().shrunkFiles, 2U);
    EXPECT_EQ(server.GetState().shrunkName, "\\data\\c") << "the first";
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
