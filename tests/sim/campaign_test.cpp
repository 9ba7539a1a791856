// The campaign in small, and that its checker would notice.
#include "sim/campaign/campaign.h"

#include <gtest/gtest.h>

#include <set>

#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sim/campaign/checker.h"
#include "sim/world/fibers/sanitizers.h"

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

constexpr uint64_t RUNS = IS_SANITIZED ? 40 : 400;

TEST(Campaign, NothingIsBrokenInTheFirstRuns) {
  std::string broken;
  const CampaignSummary summary = RunCampaign(
      {.firstNumber = 1, .runs = RUNS, .threads = 2},
      [&](const RunPlan& plan, const RunResult& result) { broken += ToText(plan) + result.violations.front() + "\n"; });
  EXPECT_EQ(broken, "");
  EXPECT_EQ(summary.rooms, RUNS);
  EXPECT_GE(summary.attacked, RUNS / 10);
  EXPECT_GT(summary.complete, RUNS) << "a campaign in which nobody completes shows nothing";
  EXPECT_GT(summary.reported, RUNS / 10);
  EXPECT_GT(summary.runs, RUNS) << "more transfers than rooms";
  // A fault that is switched on and does nothing would make a campaign look good.
  std::set<std::string> faults = {"sender told 1460", "receiver told 112", "receiver told 1001", "receiver told 1004"};
  for (int fate = 0; fate < static_cast<int>(Fate::COUNT); ++fate)
    if (fate != static_cast<int>(Fate::Filtered)) faults.insert(ToText(static_cast<Fate>(fate)));
  for (int kind = 0; kind <= static_cast<int>(FaultKind::FileVanishes); ++kind)
    faults.insert(ToText(static_cast<FaultKind>(kind)));
  // Few rooms do not have all of them.
  if (IS_SANITIZED) return;
  for (const std::string& fault : faults)
    EXPECT_TRUE(summary.happened.contains(fault) && summary.happened.at(fault) > 0) << fault;
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

}  // namespace
}  // namespace quorl::sim
