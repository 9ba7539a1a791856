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
  EXPECT_FALSE(flow[0].missing) << "a late copy";
  EXPECT_EQ(flow.Ack(Row(0), 2, 5), Lines{"RELEASE 00 R0"});
  EXPECT_EQ(flow.Ack(STRANGER, 2, 5), Lines{});
  EXPECT_EQ(flow.Finish(STRANGER, 1002), Lines{});
  EXPECT_EQ(flow[0].status, 0U);
  EXPECT_FALSE(flow[0].needsTurn);
  EXPECT_EQ(flow.Watch(2000), Lines{"1500: MASTER 1 R1"});
  EXPECT_EQ(flow.Ack(Row(1), 1, 0), Lines{"RESEND 1.0"});
  EXPECT_EQ(flow.Watch(4000), (Lines{"3000: MASTER 1 R1", "3500: MASTER 1 R1"}))
      << "one that has been heard has a second";
}

TEST(RobustFlow, AFailureSticksAndARoomInWhichAllHaveFailedIsOverAtOnce) {
  FlowDriver flow(Profile::Robust, 3);
  EXPECT_EQ(flow.Finish(Row(0), 112), Lines{"ERROR 112 R0"});
  flow.HandOver();
  EXPECT_EQ(flow.Finish(Row(0), 0), Lines{});
  EXPECT_EQ(flow[0].status, 112U);
  EXPECT_EQ(flow.Finish(Row(2), 1001), Lines{"ERROR 1001 R2"});
  EXPECT_EQ(flow.Finish(Row(1), 1001), (Lines{"ERROR 1001 R1", "END 0"}));
  FlowDriver early(Profile::Robust, 1);
  EXPECT_EQ(early.Finish(Row(0), 112), (Lines{"ERROR 112 R0", "END 0"})) << "while the stream runs";
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

TEST(RobustFlow, WhoAsksInVainIsServedLongerInTheSecondPassThanWhoIsSilent) {
  for (const bool asks : {false, true}) {
    FlowDriver flow(Profile::Robust, 1);
    flow.HandOver();
    int until = 1000;
    Lines said;
    for (; until < 60'000 && (said.empty() || said.back().find("END") == std::string::npos); until += 500) {
      if (asks) flow.Ack(Row(0), 2, 5);
      for (const std::string& line : flow.Watch(until + 500)) said.push_back(line);
    }
    EXPECT_EQ(until, asks ? 42'000 : 10'500) << "the memory of a system for fragments lasts for 30 s";
  }
}

}  // namespace
}  // namespace quorl
