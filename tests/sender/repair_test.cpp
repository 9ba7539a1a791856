// From the end of the stream to the end of the transfer: what goes wrong, and who floods it.
#include <gtest/gtest.h>

#include "sender/order_queue.h"
#include "tests/sender/sender_room.h"

namespace quorl {
namespace {

using SenderRepair = SenderRoom;

/// Writes down the codes of ends, the files of blocks; an end may decide something itself.
struct OrderQueueTest : testing::Test {
  void Decide(const Orders& orders) {
    {
      const std::scoped_lock lock(decisions);
      queue.Append(orders);
    }
    queue.CarryOut();
  }
  void CarryOut(const Order& order) {
    EXPECT_TRUE(decisions.try_lock()) << "an order is carried out under the lock";
    decisions.unlock();
    const auto* end = std::get_if<EndOrder>(&order);
    if (end && whileAt) std::exchange(whileAt, nullptr)();
    done.push_back(end ? end->code : std::get<ResendOrder>(order).file);
  }

  std::mutex decisions;
  Counters counters;
  std::vector<uint32_t> done;
  std::function<void()> whileAt;
  OrderQueue queue{decisions, counters, [this](const Order& order) { CarryOut(order); }};
};

TEST_F(OrderQueueTest, AFloodOfRequestsFindsNoRoomAndAnEndStillDoes) {
  whileAt = [this] {
    for (uint32_t i = 0; i < OrderQueue::LIMIT + 500; ++i) Decide({ResendOrder{7, i}});
    Decide({EndOrder{2}});
  };
  Decide({EndOrder{1}});
  EXPECT_EQ(done.front(), 1U) << "what is decided while somebody is at it waits for its turn";
  EXPECT_EQ(done.size(), OrderQueue::LIMIT + 2);
  EXPECT_EQ(done.back(), 2U);
  EXPECT_EQ(counters[Count::DroppedOrderQueueFull], 500U);
  EXPECT_EQ(counters[Count::OrdersHighWater], OrderQueue::LIMIT + 1);
}

TEST_F(SenderRepair, WhatCannotBeReadOrSentAgainEndsTheTransferWith32) {
  const std::function<void()> vanish = [this] { machine.Disk().Remove("C:\\data\\b"); };
  const std::function<void()> failThirdRead = [this] {
    machine.FailEvery([reads = 0](std::string_view call) mutable { return call == "files.read" && ++reads == 3; });
  };
  const std::function<void()> failSends = [this] { FailSends(); };
  for (const auto& [happens, isDuringRepair, count] :
       {std::tuple{vanish, false, 1u}, {failThirdRead, false, 2u}, {vanish, true, 6u}, {failSends, true, 6u}}) {
    Init(1);
    const size_t told = Statuses().size(), masters = Sent(CMD_MASTER).size(), blocks = Sent(CMD_DATA).size();
    if (!isDuringRepair) happens();
    Start();
    if (isDuringRepair) {
      ASSERT_TRUE(world.RunUntil([&] { return Sent(CMD_MASTER).size() > masters; }, 10s));
      happens();
      Reply(0, Ack{2, 0});
    }
    ASSERT_TRUE(RunUntilStatuses(told + 2));
    EXPECT_EQ(Statuses().back(), 32U);
    EXPECT_EQ(Sent(CMD_DATA).size() - blocks, count);
    world.RunFor(6s);
    EXPECT_EQ(machine.RunningThreads(), 0U);
    machine.FailEvery({});
    machine.Disk().Remove("C:\\data");
    SetUp();
  }
}

TEST_F(SenderRepair, WhateverARobustSenderCannotSendEndsTheTransferWithOneStatus) {
  // From the announcement to the repair of a block, each datagram in turn is the first that cannot be sent.
  for (int sends = 0; sends < 24; ++sends) {
    SCOPED_TRACE(sends);
    Init(1, Profile::Robust);
    const size_t told = Statuses().size();
    machine.FailEvery([left = sends](std::string_view call) mutable { return call == "network.send" && --left < 0; });
    Start();
    world.RunFor(1300ms);
    Reply(0, Ack{2, 0});
    world.RunFor(60s);
    EXPECT_EQ(Statuses().size(), told + 1);
    EXPECT_EQ(Statuses().back(), uint32_t{QUORL_STATUS_SEND_FAILED});
    EXPECT_EQ(machine.RunningThreads() + machine.OpenSockets(), 0U);
    machine.FailEvery({});
  }
  EXPECT_EQ(Sent(CMD_MASTER).size(), 1U) << "but for the last time the transfer did not get so far";
}

TEST_F(SenderRepair, AFileIsMeasuredAnewWhenItIsOpenedAndARobustSenderKeepsWhatItAnnounced) {
  using Blocks = std::vector<std::array<size_t, 3>>;
  for (const Profile profile : {Profile::Classic, Profile::Robust}) {
    SetUp();
    Init(1, profile);
    Start();
    world.RunFor(1300ms);
    const size_t before = Sent(CMD_RESEND).size();
    // Once it is open its measures stay, but what is read is what is there.
    for (const uint64_t length : {3 * BLOCK_SIZE + 7, 4 * BLOCK_SIZE}) {
      machine.Disk().WriteSynthetic("C:\\data\\c", length, 2);
      Reply(0, Ack{3, 3});
      world.RunFor(10ms);
    }
    Blocks blocks;
    for (const auto& sent : Sent(CMD_RESEND)) {
      const auto head = ReadFields<BlockHead>(sent.bytes);
      blocks.push_back({head.lastBlock, head.tailSize, sent.bytes.size() - BLOCK_HEAD_SIZE});
    }
    blocks.erase(blocks.begin(), blocks.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(blocks,
              profile == Profile::Classic ? (Blocks{{3, 7, 7}, {3, 7, BLOCK_SIZE}}) : (Blocks{{2, 1, 0}, {2, 1, 0}}));
  }
}

TEST_F(SenderRepair, ForgedRequestsAreNotServedAndThoseInTheMastersNameNoFasterThanTheRate) {
  server.SetSendRate(1000);  // 40 ms a block
  Init(2, Profile::Robust);
  // Of a transfer before: this one is not announced yet.
  world.At(world.Now() + 5ms, [this] {
    for (const int number : {0, 1}) Reply(number, Finish{112});
  });
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
