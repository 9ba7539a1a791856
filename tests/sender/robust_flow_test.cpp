// The robust flow control: only the master is served, and nobody is left incomplete without a status.
#include "sender/robust_flow.h"

#include <gtest/gtest.h>

#include "tests/sender/flow_driver.h"

namespace quorl {
namespace {

TEST(RobustFlow, NobodyButTheMasterIsServedOrCountsAsASignOfLife) {
  FlowDriver flow(Profile::Robust, 2);
  EXPECT_EQ(flow.HandOver(), Lines{"MASTER 1 R0"});
  EXPECT_EQ(flow.Ack(Row(0), 2, 5), Lines{"RESEND 2.5"});
  EXPECT_EQ(flow.Ack(Row(1), 2, 5), Lines{"RELEASE 00 R1"});
  EXPECT_EQ(flow.Ack(Row(0), 4, 0), Lines{"MASTER 0 R0"});
  EXPECT_EQ(flow.Finish(Row(0), 0), Lines{"MASTER 1 R1"});
  EXPECT_EQ(flow.Finish(Row(0), 0), Lines{});
  EXPECT_EQ(flow.Answer(Row(0), 90), Lines{});
  EXPECT_EQ(flow.Ack(Row(0), 2, 5), Lines{"RELEASE 00 R0"});
  EXPECT_EQ(flow.Ack(STRANGER, 2, 5), Lines{});
  EXPECT_EQ(flow.Finish(STRANGER, 1002), Lines{});
  EXPECT_EQ(flow[0].status, 0U);
  EXPECT_FALSE(flow[0].needsTurn);
  EXPECT_EQ(flow.Watch(2000), Lines{"1500: MASTER 1 R1"});
}

TEST(RobustFlow, AMasterThatAsksWithoutEndLosesItsTurn) {
  FlowDriver flow(Profile::Robust, 2);
  flow.HandOver();
  // A hundred blocks in all; for one and another in turns, so that there is always news.
  int served = 0;
  for (Lines reaction{"RESEND"}; reaction[0].starts_with("RESEND"); ++served)
    reaction = flow.Ack(Row(0), 1, static_cast<uint32_t>(served % 2));
  EXPECT_EQ(served, 1601);
  EXPECT_EQ(flow[0].status, 1460U);
  EXPECT_EQ(flow.Ack(Row(1), 4, 0), Lines{"MASTER 0 R1"});
  EXPECT_EQ(flow.Finish(Row(1), 1001), (Lines{"ERROR 1001 R1", "MASTER 1 R0"})) << "who fails hands the turn on";
  EXPECT_EQ(flow.Finish(Row(1), 1001), Lines{});
}

}  // namespace
}  // namespace quorl
