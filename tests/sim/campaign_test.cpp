// The campaign in small, and that its checker would notice.
#include "sim/campaign.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sim/checker.h"
#include "sim/pcap.h"
#include "sim/sanitizers.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr uint64_t RUNS = IS_SANITIZED ? 40 : 150;

TEST(Campaign, NothingIsBrokenInTheFirstRuns) {
  std::string broken;
  const CampaignSummary summary = RunCampaign(
      {.firstNumber = 1, .runs = RUNS, .threads = 2},
      [&](const RunPlan& plan, const RunResult& result) { broken += ToText(plan) + result.violations.front() + "\n"; });
  EXPECT_EQ(broken, "");
  EXPECT_EQ(summary.runs, RUNS);
  EXPECT_GT(summary.attacked, RUNS / 10);
  EXPECT_GT(summary.complete, RUNS) << "a campaign in which nobody completes shows nothing";
  EXPECT_GT(summary.reported, RUNS / 10);
}

TEST(Campaign, TheSameNumberGivesTheSameRun) {
  for (uint64_t number = 1; number <= 6; ++number) {
    const RunPlan plan = DrawPlan(number, std::nullopt);
    EXPECT_EQ(ToText(plan), ToText(DrawPlan(number, std::nullopt)));
    const RunResult first = Execute(plan, {}, true);
    const RunResult second = Execute(plan, {}, true);
    EXPECT_EQ(first.logHash, second.logHash) << number;
    EXPECT_NE(first.logHash, 0u);
  }
}

struct CheckerTest : testing::Test {
  CheckerTest() {
    room.File("a", 10 * BLOCK_SIZE);
    room.StartReceivers();
    room.Send();
  }

  template <typename Message>
  void Say(const Message& message) {
    const auto socket = room.Receiver(0).Seam().network.OpenDatagramSocket();
    socket->Send(Build(message), {room.Sender().Address(), RoomAddress{}.ReplyPort()});
  }

  Room room{{.receivers = 2, .senderProfile = Profile::Robust, .receiverProfile = Profile::Robust}};
  Checker checker{room, Profile::Robust, Profile::Robust, {}};
};

TEST_F(CheckerTest, AnHonestRoomIsFineAndLeavesThreadsAndSocketsUntilItIsTornDown) {
  Say(Answer{3});
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  checker.AtRest();
  EXPECT_TRUE(checker.Violations().empty()) << checker.Violations().front();
  checker.AfterTearDown();
  EXPECT_GE(checker.Violations().size(), 3u);
}

TEST_F(CheckerTest, ItNoticesAFalseCompletionInEveryForm) {
  Say(Answer{0});
  Say(Finish{0});
  Say(Ack{2, 0});
  EXPECT_EQ(checker.Violations().size(), 3u);
}

TEST_F(CheckerTest, ItNoticesFilesInTheWrongPlaceAndWrongContent) {
  ASSERT_TRUE(room.RunUntilQuiet(60s));
  room.Receiver(0).Disk().Write("C:\\outside", "x");
  room.Receiver(1).Disk().Write("C:\\in\\a", "x");
  checker.AtRest();
  EXPECT_EQ(checker.Violations().size(), 3u) << "outside the target, complete, and not reported";
}

TEST(Pcap, HasThePacketsWithTheirHeaders) {
  const std::string path = testing::TempDir() + "quorl_pcap_test";
  const SentDatagram sent{1'000'000'005ns, nullptr, {Ipv4(10, 0, 0, 1), 27001}, {Ipv4(10, 0, 0, 2), 27003}, {7, 8, 9}};
  ASSERT_TRUE(WritePcap(path, std::span(&sent, 1)));
  std::ifstream file(path, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  const std::vector<uint8_t> bytes(text.begin(), text.end());
  std::remove(path.c_str());
  const std::vector<uint8_t> expected = {
      0x4D, 0x3C, 0xB2, 0xA1, 2, 0,  4,    0,    0,  0,  0,    0,    0,  0, 0, 0, 0xFF, 0xFF, 0, 0,
      101,  0,    0,    0,                                                                           // the file
      1,    0,    0,    0,    5, 0,  0,    0,    31, 0,  0,    0,    31, 0, 0, 0,                    // the record
      0x45, 0,    0,    31,   0, 0,  0,    0,    50, 17, 0x74, 0xCC, 10, 0, 0, 1, 10,   0,    0, 2,  // IPv4
      0x69, 0x79, 0x69, 0x7B, 0, 11, 0x08, 0xD9, 7,  8,  9};                                         // UDP
  EXPECT_EQ(bytes, expected);
}

}  // namespace
}  // namespace quorl::sim
