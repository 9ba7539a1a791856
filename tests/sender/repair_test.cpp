// From the end of the stream to the end of the transfer: what goes wrong, and who floods it.
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

using SenderRepair = SenderRoom;

TEST_F(SenderRepair, WhatCannotBeReadOrSentAgainEndsTheTransferWith32) {
  const std::function<void()> vanish = [this] { machine.Disk().Remove("C:\\data\\b"); };
  const std::function<void()> failThirdRead = [this] {
    machine.FailEvery([reads = 0](std::string_view call) mutable { return call == "files.read" && ++reads == 3; });
  };
  const std::function<void()> failSends = [this] { FailSends(); };
  struct Case {
    std::function<void()> happens;
    bool isDuringRepair;
    size_t blocks;
  };
  for (const Case& c : {Case{vanish, false, 1}, {failThirdRead, false, 3}, {vanish, true, 6}, {failSends, true, 6}}) {
    Init(1);
    const size_t told = Statuses().size(), masters = Sent(CMD_MASTER).size(), blocks = Sent(CMD_DATA).size();
    if (!c.isDuringRepair) c.happens();
    Start();
    if (c.isDuringRepair) {
      ASSERT_TRUE(world.RunUntil([&] { return Sent(CMD_MASTER).size() > masters; }, 10s));
      c.happens();
      Reply(0, Ack{2, 0});
    }
    ASSERT_TRUE(RunUntilStatuses(told + 2));
    EXPECT_EQ(Statuses().back(), 32U);
    EXPECT_EQ(Sent(CMD_DATA).size() - blocks, c.blocks);
    world.RunFor(6s);
    EXPECT_EQ(machine.RunningThreads(), 0U);
    machine.FailEvery({});
    SetUp();
  }
}

TEST_F(SenderRepair, ForgedRequestsAreNotServedAndThoseInTheMastersNameNoFasterThanTheRate) {
  server.SetSendRate(1000);  // 40 ms a block
  Init(2, Profile::Robust);
  Start();
  ASSERT_TRUE(world.RunUntil([&] { return !Sent(CMD_MASTER).empty(); }, 60s));
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

}  // namespace
}  // namespace quorl
