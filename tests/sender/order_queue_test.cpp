#include "sender/order_queue.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

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

}  // namespace
}  // namespace quorl
