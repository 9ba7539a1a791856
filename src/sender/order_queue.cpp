#include "sender/order_queue.h"

namespace quorl {

void OrderQueue::CarryOut() {
  std::unique_lock lock(decisions);
  if (busy) return;
  busy = true;
  while (!waiting.empty()) {
    const Order next = waiting.front();
    waiting.pop_front();
    lock.unlock();
    carryOut(next);
    lock.lock();
  }
  busy = false;
}

}  // namespace quorl
