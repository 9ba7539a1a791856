#pragma once

#include <deque>
#include <functional>
#include <mutex>

#include "sender/orders.h"

namespace quorl {

/// Orders on their way from the decisions to whoever carries them out. Several threads decide; what they decide is
/// carried out in that order, one at a time: by the thread that finds nobody at it, which goes on until none is left.
class OrderQueue {
 public:
  /// `decisions` guards the queue as well, so that orders stand in it in the order decided.
  OrderQueue(std::mutex& decisions, std::function<void(const Order&)> carryOut)
      : decisions(decisions), carryOut(std::move(carryOut)) {}

  /// To be called with the mutex held.
  void Append(const Orders& orders) { waiting.insert(waiting.end(), orders.begin(), orders.end()); }

  /// To be called without the mutex. Returns at once while another thread, or a caller of this one, is at it.
  void CarryOut();

 private:
  std::mutex& decisions;
  const std::function<void(const Order&)> carryOut;
  std::deque<Order> waiting;
  bool busy = false;
};

}  // namespace quorl
