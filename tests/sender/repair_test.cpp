// From the end of the stream to the end of the transfer: what goes wrong, and who floods it.
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

using SenderRepair = SenderRoom;

TEST_F(SenderRepair, ABlockThatCannotBeReadOrSentAgainEndsTheTransfer) {
  for (const bool isSent : {false, true}) {
    Init(1);
    Start();
    const size_t told = Statuses().size(), masters = Sent(CMD_MASTER).size();
    ASSERT_TRUE(world.RunUntil([&] { return Sent(CMD_MASTER).size() > masters; }, 10s));
    if (isSent) FailSends();
    if (!isSent) machine.Disk().Remove("C:\\data\\b");
    Reply(0, Ack{2, 0});
    ASSERT_TRUE(RunUntilStatuses(told + 2));
    EXPECT_EQ(Statuses().back(), 32U);
    world.RunFor(6s);
    EXPECT_EQ(machine.RunningThreads(), 0U);
    SetUp();
  }
  EXPECT_EQ(machine.OpenSockets(), 0U);
}

TEST_F(SenderRepair, StoppedOrTornDownAtAnyMomentItEndsEveryThreadWithinASecond) {
  for (const bool isStopped : {true, false}) {
    for (const Duration moment : {0ms, 60ms, 400ms, 900ms, 2500ms}) {
      Init(1);
      Start();
      world.RunFor(moment);
      const size_t told = Statuses().size();
      machine.Call([&] { EXPECT_EQ(isStopped ? server.StopSend() : server.DeInitServer(), 1U); });
      world.RunFor(900ms);
      EXPECT_EQ(machine.RunningThreads(), 0U) << Milliseconds(moment);
      if (isStopped) {
        EXPECT_EQ(Statuses().size() - told, 1U);
      }
    }
  }
  EXPECT_EQ(Sent(CMD_STOP).size(), 15U);
}

TEST_F(SenderRepair, AQuickRestartEndsTheRunningTransferAndItsThreads) {
  Init(1);
  Start();
  Start();
  const size_t before = Sent(CMD_DATA).size();
  world.RunFor(1s);
  EXPECT_EQ(machine.RunningThreads(), 3U);  // ReplyThread, SendThread, ReportThread.
  EXPECT_EQ(Sent(CMD_DATA).size() - before, 6U);
  EXPECT_TRUE(Statuses().empty());
}

TEST_F(SenderRepair, ForgedRequestsAreNotServedAndThoseInTheMastersNameNoFasterThanTheRate) {
  server.SetSendRate(1000);  // 40 ms a block
  Init(2, Profile::Robust);
  Start();
  ASSERT_TRUE(RunUntilSent(CMD_MASTER));
  const auto flood = [this](int number) {
    for (uint32_t i = 0; i < 1000; ++i) {
      Reply(number, Ack{3, i % 2});
      world.RunFor(1ms);
    }
  };
  flood(7);
  EXPECT_EQ(Counter("sender.dropped.stranger"), 1000U);
  EXPECT_TRUE(Sent(CMD_RESEND).empty() && Sent(CMD_RELEASE).empty());
  flood(1);
  EXPECT_TRUE(Sent(CMD_RESEND).empty());
  EXPECT_EQ(Sent(CMD_RELEASE).size(), 1000U);
  flood(0);
  EXPECT_LE(Sent(CMD_RESEND).size(), 26U);
  EXPECT_EQ(Counter("sender.repairs_served"), Sent(CMD_RESEND).size());
  // Whoever keeps quiet afterwards gets to the end.
  Reply(0, Finish{0});
  Reply(1, Finish{0});
  ASSERT_TRUE(RunUntilStatuses(1));
  EXPECT_EQ(Statuses().back(), 0U);
}

TEST_F(SenderRepair, OfThreeHundredReceiversTheFirst200StayAndTheOthersAreCounted) {
  Init(300);
  EXPECT_EQ(server.GetReceivers(nullptr, 0), 200U);
  EXPECT_EQ(Counter("sender.dropped.table_full"), 100U);
  EXPECT_EQ(server.GetState().answersRefused, 100U);
  EXPECT_EQ(server.GetState().receivers.front().address, Peer(0).address);
}

}  // namespace
}  // namespace quorl
