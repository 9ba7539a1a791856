#pragma once

#include <cstddef>
#include <deque>
#include <optional>

#include "platform/time.h"
#include "protocol/counters.h"
#include "receiver/repair/gap_expansion.h"
#include "receiver/repair/lost_map.h"
#include "receiver/repair/sequence_position.h"

namespace quorl {

/// The gaps of the stream that wait, and their expansion into missing blocks in the pace that the classic rules give to
/// a thread of its own, LostThread: it looks every 10 ms, and rests 2 ms after every 12 blocks of a gap. Here that is a
/// matter of reckoning: whatever it would have done by now is done when somebody looks. Used by one thread at a time.
class GapList {
 public:
  /// Gaps that wait at most.
  static constexpr size_t LIMIT = 65536;

  GapList(LostMap& lostMap, Counters& counters) : lostMap(lostMap), counters(counters) {}

  /// A transfer with no gap yet, none of which will stand for more than `blocks`. LostThread starts with the first one;
  /// when it has ended it is not started again.
  void Begin(Moment now, uint64_t blocks);
  void Clear();

  /// A gap has shown. After LostThread's end it stays in the list.
  void Add(const GapRecord& gap);

  /// No gap waits; the one that is being expanded has left the list.
  bool IsEmpty() const { return gapList.empty(); }

  /// Everything that LostThread does until `now` while the stream is on.
  void RunUntil(Moment now);

  /// The stream is over: LostThread works the list off and ends. How long after `now` it does, at most `limit`.
  Duration RunToEnd(Moment now, Duration limit);

 private:
  enum class State { NotStarted, Running, Ended };

  void Step();
  void ExpandSome();

  LostMap& lostMap;
  Counters& counters;
  std::deque<GapRecord> gapList;
  std::optional<GapExpansion> expansion;
  State state = State::NotStarted;
  bool streamOver = false;
  uint64_t blockLimit = 0;
  Moment nextLook{};
};

}  // namespace quorl
