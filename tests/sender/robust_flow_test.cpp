// The robust flow control: every single lost datagram is cured, and nobody is left incomplete without a status.
#include "sender/robust_flow.h"

#include <gtest/gtest.h>

#include "tests/sender/flow_driver.h"

namespace quorl {
namespace {

constexpr Endpoint STRANGER{Ipv4(192, 168, 7, 7), 9};

FlowDriver Robust(int rows) {
  return FlowDriver(Profile::Robust, rows);
}

TEST(RobustFlow, RepeatedDatagramsOfAFormerMasterDisturbNobody) {
  FlowDriver flow = Robust(2);
  EXPECT_EQ(flow.HandOver(), Lines{"MASTER 1 R0"});
  EXPECT_EQ(flow.Ack(Row(0), 2, 5), Lines{"RESEND 2.5"});
  EXPECT_EQ(flow.Ack(Row(0), 4, 0), Lines{"MASTER 0 R0"});
  EXPECT_EQ(flow.Finish(Row(0), 0), Lines{"MASTER 1 R1"});
  EXPECT_EQ(flow.Finish(Row(0), 0), Lines{});
  EXPECT_EQ(flow.Answer(Row(0), 90), Lines{});
  EXPECT_EQ(flow.Ack(Row(0), 2, 5), Lines{"RELEASE 00 R0"});
  EXPECT_EQ(flow.Ack(STRANGER, 2, 5), Lines{});
  EXPECT_EQ(flow.Finish(STRANGER, 1002), Lines{});
  EXPECT_EQ(flow[0].status, 0U);
  EXPECT_FALSE(flow[0].needsTurn);
  // None of it counts as a sign of life of the new master.
  EXPECT_EQ(flow.Watch(2000), Lines{"1500: MASTER 1 R1"});
}

TEST(RobustFlow, WhatSaysCompleteBeforeTheStreamIsOutIsALateCopy) {
  FlowDriver flow = Robust(1);
  flow.Finish(Row(0), 0);
  flow.Answer(Row(0), 0);
  flow.Ack(Row(0), 1, 0);
  EXPECT_EQ(flow.HandOver(), Lines{"MASTER 1 R0"});
}

TEST(RobustFlow, AMasterThatFailsOrTurnsOutCompleteIsFollowedByTheNextAtOnce) {
  FlowDriver flow = Robust(4);
  flow.HandOver();
  EXPECT_EQ(flow.Finish(Row(0), 1001), (Lines{"ERROR 1001 R0", "MASTER 1 R1"}));
  EXPECT_EQ(flow.Finish(Row(0), 1001), Lines{});
  EXPECT_EQ(flow.Answer(Row(1), 0), Lines{"MASTER 1 R2"});
  EXPECT_EQ(flow.Finish(Row(2), 0), Lines{"MASTER 1 R3"});
  EXPECT_EQ(flow.Finish(Row(3), 112), (Lines{"ERROR 112 R3", "END 0"}));
  EXPECT_EQ(flow[0].status, 1001U);
}

TEST(RobustFlow, AReportedFailureStays) {
  FlowDriver flow = Robust(2);
  flow.HandOver();
  flow.Finish(Row(0), 1001);
  flow.Ack(Row(0), 1, 1);
  flow.Finish(Row(0), 0);
  EXPECT_EQ(flow[0].status, 1001U);
}

TEST(RobustFlow, WhenAllHaveFailedTheEndIsToldOnce) {
  FlowDriver flow = Robust(2);
  flow.Finish(Row(0), 1002);
  EXPECT_EQ(flow.Finish(Row(1), 1002), (Lines{"ERROR 1002 R1", "END 0"}));
  EXPECT_EQ(flow.HandOver(), Lines{});
  EXPECT_TRUE(flow.IsOver());
}

TEST(RobustWatch, ALostRequestOrALostCallIsAskedForAgain) {
  FlowDriver flow = Robust(2);
  flow.HandOver();
  flow.Ack(Row(0), 2, 5);
  // The next request is lost: the master is asked what it lacks now.
  EXPECT_EQ(flow.Watch(2500), Lines{"2000: MASTER 1 R0"});
  flow.Ack(Row(0), 4, 0);
  flow.Finish(Row(0), 0);
  // The call to the next master is lost.
  EXPECT_EQ(flow.Watch(3500), Lines{"3000: MASTER 1 R1"});
  EXPECT_EQ(flow.Ack(Row(1), 4, 0), Lines{"MASTER 0 R1"});
  // And this one too.
  EXPECT_EQ(flow.Watch(5000), Lines{"4500: MASTER 0 R1"});
  EXPECT_EQ(flow.Finish(Row(1), 0), Lines{"END 0"});
}

TEST(RobustWatch, AMasterThatSaidItLacksNothingAndFallsSilentIsTakenAsComplete) {
  FlowDriver flow = Robust(1);
  flow.HandOver();
  flow.Ack(Row(0), 4, 0);
  EXPECT_EQ(flow.Watch(60000), (Lines{"2000: MASTER 0 R0", "2500: MASTER 0 R0", "3000: END 0"}));
  EXPECT_EQ(flow[0].status, 0U);
}

TEST(RobustWatch, ADeadReceiverGetsTwoTurnsAndAStatusAndTheOthersComplete) {
  FlowDriver flow = Robust(2);
  flow.HandOver();
  const Lines calls = flow.Watch(5500);
  ASSERT_EQ(calls.size(), 8U);  // 1500 to 5000
  EXPECT_EQ(calls.front(), "1500: MASTER 1 R0");
  EXPECT_EQ(flow.Watch(6000), Lines{"5500: MASTER 1 R1"});
  EXPECT_EQ(flow[0].status, 1460U);
  flow.Ack(Row(1), 4, 0);
  // Nobody above row 0 is marked, and still it has its second turn.
  EXPECT_EQ(flow.Finish(Row(1), 0), Lines{"MASTER 1 R0"});
  EXPECT_EQ(flow.Watch(60000).back(), "10500: END 0");
  EXPECT_EQ(flow[0].status, 1460U);
  EXPECT_EQ(flow[1].status, 0U);
}

TEST(RobustWatch, ARoomInWhichNobodyComesToTheEndHasTimedOut) {
  FlowDriver flow = Robust(3);
  flow.HandOver();
  EXPECT_EQ(flow.Watch(120000).back(), "28000: END 1460");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(flow[i].status, 1460U);
}

TEST(RobustWatch, ALateCompletionTakesTheMarkAway) {
  FlowDriver flow = Robust(2);
  flow.HandOver();
  flow.Watch(6000);
  ASSERT_EQ(flow[0].status, 1460U);
  EXPECT_EQ(flow.Finish(Row(0), 0), Lines{});
  EXPECT_EQ(flow[0].status, 0U);
  flow.Ack(Row(1), 4, 0);
  EXPECT_EQ(flow.Finish(Row(1), 0), Lines{"END 0"});
}

}  // namespace
}  // namespace quorl
