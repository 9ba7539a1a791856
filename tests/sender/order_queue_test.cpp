#include "sender/order_queue.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace quorl {
namespace {

TEST(OrderQueue, WhoeverIsAtItCarriesOutWhatOthersDecideMeanwhileInOrder) {
  std::mutex decisions;
  std::vector<uint32_t> done;
  std::promise<void> started, goOn;
  OrderQueue queue(decisions, [&](const Order& order) {
    EXPECT_TRUE(decisions.try_lock()) << "an order is carried out under the lock";
    decisions.unlock();
    done.push_back(std::get<EndOrder>(order).code);
    if (done.size() > 1) return;
    started.set_value();
    goOn.get_future().wait();
  });
  const auto decide = [&](const Orders& orders) {
    {
      const std::scoped_lock lock(decisions);
      queue.Append(orders);
    }
    queue.CarryOut();
  };
  std::thread first([&] { decide({EndOrder{1}, EndOrder{2}}); });
  started.get_future().wait();
  decide({EndOrder{3}});
  EXPECT_EQ(done, std::vector<uint32_t>{1});
  goOn.set_value();
  first.join();
  EXPECT_EQ(done, (std::vector<uint32_t>{1, 2, 3}));
  decide({EndOrder{4}});
  EXPECT_EQ(done.back(), 4U);
}

TEST(OrderQueue, AnOrderThatBringsOthersAboutComesToItsEndBeforeThem) {
  std::mutex decisions;
  std::vector<uint32_t> done;
  OrderQueue* self = nullptr;
  OrderQueue queue(decisions, [&](const Order& order) {
    const uint32_t code = std::get<EndOrder>(order).code;
    if (code < 3) {
      {
        const std::scoped_lock lock(decisions);
        self->Append({EndOrder{code + 1}});
      }
      self->CarryOut();
    }
    done.push_back(code);
  });
  self = &queue;
  {
    const std::scoped_lock lock(decisions);
    queue.Append({EndOrder{1}});
  }
  queue.CarryOut();
  EXPECT_EQ(done, (std::vector<uint32_t>{1, 2, 3}));
}

}  // namespace
}  // namespace quorl
