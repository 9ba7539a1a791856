#pragma once

#include <deque>
#include <functional>
#include <mutex>

#include "protocol/counters.h"
#include "sender/orders.h"

namespace quorl {

/// Orders on their way from the decisions to whoever carries them out. Several threads decide; what they decide is
/// carried out in that order, one at a time: by the thread that finds nobody at it, which goes on until none is left.
class OrderQueue {
 public:
  /// Orders that wait at most, but for ends. Far more than the protocol brings about, where one receiver at a time asks
  /// for one block at a time; who floods the sender with requests while it is held up does not fill its memory.
  static constexpr size_t LIMIT = 1024;

  /// `decisions` guards the queue as well, so that orders stand in it in the order decided.
  OrderQueue(std::mutex& decisions, Counters& counters, std::function<void(const Order&)> carryOut)
      : decisions(decisions), counters(counters), carryOut(std::move(carryOut)) {}

  /// To be called with the mutex held. What finds no room is dropped and counted: calls, answers and blocks, which a
  /// network could have lost as well, and messages of failures, which GetErrInfo tells all the same.
  void Append(const Orders& orders);

  /// To be called without the mutex. Returns at once while another thread, or a caller of this one, is at it.
  void CarryOut();

  /// Whether somebody is still at the order that he was at when this was asked last. To be called with the mutex held.
  bool IsHeldUp();

 private:
  std::mutex& decisions;
  Counters& counters;
  const std::function<void(const Order&)> carryOut;
  std::deque<Order> waiting;
  bool busy = false;
  uint64_t begun = 0;      ///< Orders that have been begun.
  uint64_t lastBegun = 0;  ///< The same when IsHeldUp was asked last.
};

}  // namespace quorl
