// Who is asked next: the table of receivers, the next master, and the flow control of either profile, what each
// datagram brings about and the watchdog's timelines.
#include <gtest/gtest.h>
#include <string>

#include "protocol/endpoints.h"
#include "sender/classic_flow.h"
#include "sender/next_master.h"
#include "sender/receiver_table.h"
#include "sender/robust_flow.h"
#include "tests/sender/flow_driver.h"

namespace quorl {
namespace {

constexpr uint32_t RECEIVER = Ipv4(10, 0, 0, 1);

TEST(ReceiverTable, AReceiverIsKnownByItsAddressAndKeepsItsFirstPort) {
  ReceiverTable table;
  for (const uint16_t port : {500, 600}) EXPECT_TRUE(table.AddClient({RECEIVER, port}));
  EXPECT_EQ(table.Count(), 1);
  EXPECT_EQ(table[0].addr.port, 500);
}

TEST(ReceiverTable, MoreThanThirtyPercentMissingIsTooMuch) {
  // The greatest counts: the comparison is exact, and nothing wraps.
  constexpr uint32_t MOST = UINT32_MAX;
  for (const auto& [missing, total, status] : {std::tuple{0u, 100u, 0u},
                                               {30u, 100u, 0u},
                                               {31u, 100u, 1u},
                                               {1u, 3u, 1u},
                                               {7u, 0u, 0u},
                                               {1288490188u, MOST, 0u},
                                               {1288490189u, MOST, 1u},
                                               {MOST, MOST, 1u}}) {
    ReceiverTable table;
    table.AddClient({RECEIVER, 500});
    table.TakeAnswer(RECEIVER, missing, total);
    EXPECT_EQ(table[0].status, status) << missing << " of " << total;
    EXPECT_EQ(table[0].noTurn, missing == 0 || status == 1);
    EXPECT_TRUE(table.AllAnswered());
    table.Forget();
    EXPECT_TRUE(table[0].IsCandidate() && !table.AllAnswered());
  }
}

/// One letter a row: "." may lack something, "n" needs no turn, "f" has a status, "m" is marked for the second pass.
ReceiverTable TableOf(const std::string& rows) {
  ReceiverTable table;
  for (const char row : rows) {
    const int32_t index = table.Count();
    table.AddClient({Ipv4(10, 0, 0, static_cast<uint8_t>(index)), 27001});
    table[index].noTurn = row == 'n';
    table[index].needsTurn = row == 'm';
    table[index].status = row == 'f' || row == 'm' ? 1460 : 0;
  }
  return table;
}

TEST(NextMaster, GoesDownTheTableThenToTheMarkedOnes) {
  constexpr PassState FIRST{false, false}, FIRST_PENDING{false, true}, SECOND{true, true};
  const std::tuple<const char*, int32_t, PassState, int32_t, bool> cases[] = {
      {"...", -1, FIRST, 0, false},
      {"nf.", -1, FIRST, 2, false},
      {"n.m.", 1, FIRST_PENDING, 3, false},
      // Nobody is left, and nobody marked.
      {"", -1, FIRST, 0, true},
      {".nn", 0, FIRST, 3, true},
      {"..", 1, FIRST, 2, true},
      {"mnmn", 2, FIRST_PENDING, 0, true},  // Row 2 is marked too, so row 0 counts.
      {"nmm", 0, FIRST_PENDING, 1, true},
      {"nmm", -1, SECOND, 1, true},
      {"nmm", 2, SECOND, 3, true},
      {"mnn", -1, SECOND, 0, true},
      // From row 0 on, row 0 is left out unless a higher one is marked.
      {"mnn", 0, SECOND, 3, true},
      {"mnm", 0, SECOND, 0, true},  // Named again while it is master.
      {"m", -1, FIRST_PENDING, 1, true},
      // After the last row the second pass is entered with nothing pending too.
      {"nm", 1, FIRST, 1, true},
      {"mm", 1, FIRST, 0, true},
  };
  for (const auto& [rows, current, before, next, secondPass] : cases) {
    PassState pass = before;
    EXPECT_EQ(NextMaster(TableOf(rows), pass, current), next) << '"' << rows << "\" after " << current;
    EXPECT_EQ(pass.secondPass, secondPass) << '"' << rows << "\" after " << current;
  }
}

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
