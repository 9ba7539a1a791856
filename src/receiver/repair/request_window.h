#pragma once

#include <deque>
#include <optional>

#include "platform/time.h"
#include "receiver/blocks/lost_block.h"

namespace quorl {

/// The requests of a master that are under way: how many there may be, and when one is made again. A request is late
/// after a time that follows the measured round trip as RFC 6298 does, or at once when several made after it have been
/// answered. Used by one thread at a time.
class RequestWindow {
 public:
  static constexpr Duration SHORTEST = std::chrono::milliseconds(20);
  static constexpr Duration LONGEST = std::chrono::milliseconds(400);

  /// Before anything has been measured.
  static constexpr Duration INITIAL = std::chrono::milliseconds(200);

  /// Requests at once: at first, and at most. The most blocks that come at once then fit into any receive buffer.
  static constexpr size_t FIRST = 4;
  static constexpr size_t MOST = 32;

  /// Times that one block is asked for before it leaves the window in vain, if others have come meanwhile. While
  /// nothing comes at all it is not the block.
  static constexpr int TIMES = 5;

  /// Nothing is waited for any more.
  void Clear() { requests.clear(); }

  bool HasRoom() const { return requests.size() < size; }
  bool Holds(LostBlock block) const;

  /// A request for a block that it does not hold has been made.
  void Made(Moment now, LostBlock block) { requests.push_back({block, now, now}); }

  /// A block has come: one more may be asked for at once than before.
  void Answered(Moment now, LostBlock block);

  /// A late request, which counts as made again now; nothing while none is late.
  std::optional<LostBlock> RepeatLate(Moment now);

  /// When the next request will be late; nothing while there is none.
  std::optional<Moment> Due() const;

 private:
  struct Request {
    LostBlock block;
    Moment madeAt{};       ///< The latest time,
    Moment firstMadeAt{};  ///< and the first.
    int times = 1;
    int overtaken = 0;  ///< Later requests that have been answered.
  };

  bool IsOvertaken(const Request& request) const;
  void Measure(Duration roundTrip);
  void BackOff(Moment now, const Request& late);

  std::deque<Request> requests;  ///< In the order in which they were made.
  size_t size = FIRST;
  std::optional<Duration> smoothed;
  Duration variation{};
  Duration timeout = INITIAL;
  Moment answeredAt{};   ///< The latest answer,
  Moment backedOffAt{};  ///< and the latest doubling of the time-out.
};

}  // namespace quorl
