// The classic flow control: what each datagram brings about, and the watchdog's timelines.
#include "sender/classic_flow.h"

#include <gtest/gtest.h>

#include "tests/sender/flow_driver.h"

namespace quorl {
namespace {

FlowDriver Classic(int rows) {
  return FlowDriver(Profile::Classic, rows);
}

TEST(ClassicFlow, StrangersAndFileZeroMarkNobodyAndAreNotServed) {
  FlowDriver flow = Classic(1);
  flow.HandOver();
  EXPECT_EQ(flow.Ack(STRANGER, 1, 1), Lines{"RELEASE 00 stranger"});
  EXPECT_EQ(flow.Ack(Row(0), 0, 3), Lines{});
  EXPECT_EQ(flow.Finish(STRANGER, 0), Lines{});
  EXPECT_EQ(flow.Finish(STRANGER, 1002), Lines{"ERROR 1002 stranger"});
  EXPECT_FALSE(flow[0].needsTurn);
  EXPECT_EQ(flow[0].status, 0U);
}

TEST(ClassicWatch, AMasterThatLacksNothingAndGoesQuietIsToldTwiceThenReplaced) {
  FlowDriver flow = Classic(2);
  flow.HandOver();
  flow.Ack(Row(0), 4, 0);
  EXPECT_EQ(flow.Watch(3500), (Lines{"2000: MASTER 0 R0", "2500: MASTER 0 R0", "3000: MASTER 1 R1",
                                     // Named by the watchdog and silent: asked in every cycle from now on.
                                     "3000: MASTER 1 R1"}));
  EXPECT_FALSE(flow[0].needsTurn);
  EXPECT_EQ(flow.Watch(7000), (Lines{"3500: MASTER 1 R1", "4000: MASTER 1 R1", "4500: MASTER 1 R1", "5000: MASTER 1 R1",
                                     "5500: MASTER 1 R1", "6000: MASTER 1 R1", "6500: MASTER 1 R1"}));
  // After nine calls it is marked, and in the second pass named again at once.
  EXPECT_EQ(flow.Watch(7500), (Lines{"7000: MASTER 1 R1", "7000: MASTER 1 R1", "7000: MASTER 1 R1"}));
  EXPECT_TRUE(flow[1].needsTurn);
  EXPECT_EQ(flow[1].status, 1460U);
  EXPECT_EQ(flow.Watch(60000).back(), "11000: END 0");
}

TEST(ClassicWatch, AMasterNamedByAnotherOnesEndGetsMaster0InItsIdleCyclesAndIsReplacedUnmarked) {
  FlowDriver flow = Classic(2);
  flow.HandOver();
  flow.Ack(Row(0), 4, 0);
  EXPECT_EQ(flow.Finish(Row(0), 0), Lines{"MASTER 1 R1"});
  EXPECT_EQ(flow.Watch(60000), (Lines{"2000: MASTER 0 R1", "2500: MASTER 0 R1", "3000: END 0"}));
  EXPECT_EQ(flow[1].status, 0U);
}

TEST(ClassicWatch, BeforeAnyMasterHasCompletedTheFourthGiveUpOrThatOfTheLastOneEndsTheTransfer) {
  FlowDriver single = Classic(1);
  single.HandOver();
  single.Ack(Row(0), 2, 5);
  EXPECT_EQ(single.Watch(60000), (Lines{"2000: RESEND 2.5", "5500: END 1460"}));
  EXPECT_EQ(single[0].status, 1460U);
  FlowDriver flow = Classic(6);
  flow.HandOver();
  flow.Ack(Row(0), 2, 5);
  // Whoever is named asks for the same block and is never satisfied; each gets nine cycles without news.
  EXPECT_EQ(flow.Watch(60000),
            (Lines{"2000: RESEND 2.5", "5500: MASTER 1 R1", "7000: RESEND 2.5", "10500: MASTER 1 R2",
                   "12000: RESEND 2.5", "15500: MASTER 1 R3", "17000: RESEND 2.5", "20500: END 1460"}));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(flow[i].needsTurn && flow[i].status == 1460) << i;
  EXPECT_FALSE(flow[3].needsTurn);
}

TEST(ClassicWatch, ASilentRoomIsAskedFourTimes) {
  FlowDriver flow = Classic(1);
  flow.HandOver();
  EXPECT_EQ(flow.Watch(60000), (Lines{"1000: MASTER 1 R0", "2000: MASTER 1 R0", "3000: MASTER 1 R0",
                                      "4000: MASTER 1 R0", "5000: END 1460"}));
}

TEST(ClassicWatch, TheCallsOfASilentMasterDoNotCountForTheNextOneAfterARequestInBetween) {
  FlowDriver flow = Classic(3);
  flow.HandOver();
  flow.Ack(Row(0), 4, 0);
  EXPECT_EQ(flow.Watch(5500).back(), "5000: MASTER 1 R1");
  flow.Ack(Row(1), 2, 5);
  EXPECT_EQ(flow.Watch(6500), Lines{});
  flow.Ack(Row(1), 4, 0);
  EXPECT_EQ(flow.Watch(9000).back(), "8500: MASTER 1 R2");
  flow.Watch(12000);
  EXPECT_FALSE(flow[2].needsTurn) << "it has nine calls";
  flow.Watch(14000);
  EXPECT_TRUE(flow[2].needsTurn);
}

TEST(ClassicWatch, ALaterMasterThatAsksInVainIsReplacedAndTheNextOneHasAllItsCycles) {
  FlowDriver flow = Classic(3);
  flow.HandOver();
  flow.Ack(Row(0), 4, 0);
  flow.Finish(Row(0), 0);
  flow.Ack(Row(1), 1, 0);
  EXPECT_EQ(flow.Watch(10500),
            (Lines{"2000: RESEND 1.0", "5500: MASTER 1 R2", "6500: RESEND 1.0", "10000: MASTER 1 R1"}));
}

TEST(ClassicFlow, WhatItKnowsLivesOnFromOneTransferToTheNext) {
  FlowDriver flow = Classic(3);
  // A failure before the first transfer counts, however often it is told once.
  for (int i = 0; i < 3; ++i) EXPECT_EQ(flow.Finish(Row(0), 1002), Lines{"ERROR 1002 R0"});
  flow.Begin();
  EXPECT_EQ(flow.HandOver(), Lines{"MASTER 1 R1"});
  flow.Ack(Row(1), 2, 5);
  EXPECT_EQ(flow.Watch(2000), Lines{});
  flow.Answer(Row(2), 5);
  flow.Begin();
  EXPECT_EQ(flow[0].status, 1002U);
  EXPECT_FALSE(flow[2].missing) << "what was missing is all that is forgotten";
  // Row 1 is still the master, and its latest request is the one that the watchdog knows.
  EXPECT_EQ(flow.Ack(Row(1), 2, 5), Lines{"RESEND 2.5"});
  EXPECT_EQ(flow.HandOver(), Lines{"MASTER 1 R1"});
  EXPECT_EQ(flow.Watch(2500), Lines{"2000: RESEND 2.5"}) << "its cycles begin anew";
  EXPECT_EQ(flow.Finish(Row(1), 1001), Lines{"ERROR 1001 R1"});
  EXPECT_EQ(flow.Finish(Row(2), 1001), (Lines{"ERROR 1001 R2", "END 0"}));
}

}  // namespace
}  // namespace quorl
