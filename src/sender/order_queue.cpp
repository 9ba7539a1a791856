#include "sender/order_queue.h"

#include <utility>

namespace quorl {

namespace {

/// Whether nobody would order it again.
bool IsFinal(const Order& order) {
  return std::holds_alternative<EndOrder>(order) || std::holds_alternative<CloseResendFileOrder>(order);
}

}  // namespace

void OrderQueue::Append(const Orders& orders) {
  for (const Order& order : orders) {
    if (waiting.size() < LIMIT || IsFinal(order)) {
      waiting.push_back(order);
    } else {
      counters.Add(Count::DroppedOrderQueueFull);
    }
  }
  counters.Raise(Count::OrdersHighWater, waiting.size());
}

void OrderQueue::CarryOut() {
  std::unique_lock lock(decisions);
  if (busy) return;
  busy = true;
  while (!waiting.empty()) {
    const Order next = waiting.front();
    waiting.pop_front();
    ++begun;
    lock.unlock();
    carryOut(next);
    lock.lock();
  }
  busy = false;
}

bool OrderQueue::IsHeldUp() {
  return std::exchange(lastBegun, begun) == begun && busy;
}

}  // namespace quorl
