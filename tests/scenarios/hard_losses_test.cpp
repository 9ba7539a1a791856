// Losses that no repetition can cure: they cost time, a report or a receiver, and never a wrong completion.
#include "sim/hard_losses.h"

#include <gtest/gtest.h>
#include <quorl/quorl.h>

namespace quorl::sim {
namespace {

using namespace std::chrono_literals;

TEST(HardLosses, NoneEndsInAWrongCompletion) {
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    for (const auto loss : {HardLoss::None, HardLoss::EveryFinish, HardLoss::EveryTask, HardLoss::EveryAnswer}) {
      const HardLossRun run = RunHardLoss(loss, profile);
      EXPECT_LT(run.took, 15s) << HardLossTable();
      for (const HardLossEnd& end : run.receivers) {
        EXPECT_EQ(end.toldComplete, end.whole) << HardLossTable();
        EXPECT_TRUE(loss != HardLoss::EveryFinish || end.whole) << "a lost end of the stream costs nothing";
      }
    }
  }
}

TEST(HardLosses, AReceiverThatHeardNoAnnouncementIsReported) {
  const HardLossRun classic = RunHardLoss(HardLoss::EveryTask, Profile::Classic);
  EXPECT_EQ(classic.receivers[0].statusAtSender, uint32_t{QUORL_STATUS_TIMED_OUT});
  EXPECT_GT(classic.resends, 1000u) << "it asks for the same block at full speed until it is given up";
  const HardLossRun robust = RunHardLoss(HardLoss::EveryTask, Profile::Robust);
  EXPECT_EQ(robust.receivers[0].statusAtSender, uint32_t{QUORL_STATUS_SENDER_LOST});
  EXPECT_EQ(robust.receivers[0].hostStatus, uint32_t{QUORL_STATUS_SENDER_LOST});
  EXPECT_EQ(robust.resends, 1u) << "it says so, and the other's repair begins at once";
  EXPECT_TRUE(classic.receivers[1].whole && robust.receivers[1].whole);
}

TEST(HardLosses, AnUnheardAnswerCostsTheRoomInClassicAndAFalseReportInRobust) {
  const HardLossRun classic = RunHardLoss(HardLoss::EveryAnswer, Profile::Classic);
  EXPECT_EQ(classic.senderStatus, uint32_t{QUORL_STATUS_TIMED_OUT});
  EXPECT_FALSE(classic.receivers[1].whole);
  const HardLossRun robust = RunHardLoss(HardLoss::EveryAnswer, Profile::Robust);
  EXPECT_TRUE(robust.receivers[0].whole && robust.receivers[1].whole);
  EXPECT_EQ(robust.receivers[0].statusAtSender, uint32_t{QUORL_STATUS_TIMED_OUT});
}

}  // namespace
}  // namespace quorl::sim
