#include "receiver/repair/gap_list.h"

#include <algorithm>

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration EMPTY_LIST_POLL = 10ms;
constexpr int BLOCKS_BETWEEN_RESTS = 12;
constexpr Duration REST = 2ms;

}  // namespace

void GapList::Begin(Moment now, uint64_t blocks) {
  Clear();
  blockLimit = blocks;
  if (state == State::Ended) return;
  state = State::Running;
  streamOver = false;
  nextLook = now;
}

void GapList::Clear() {
  gapList.clear();
  expansion.reset();
}

void GapList::Add(const GapRecord& gap) {
  if (gapList.size() >= LIMIT) return counters.Add(Count::RefusedGaps);
  gapList.push_back(gap);
  counters.Raise(Count::GapsHighWater, gapList.size());
}

void GapList::RunUntil(Moment now) {
  while (state == State::Running && nextLook <= now) {
    // Nothing to do but to look again and again.
    if (!expansion && gapList.empty() && !streamOver) {
      nextLook += ((now - nextLook) / EMPTY_LIST_POLL + 1) * EMPTY_LIST_POLL;
    } else {
      Step();
    }
  }
}

Duration GapList::RunToEnd(Moment now, Duration limit) {
  streamOver = true;
  RunUntil(now + limit);
  if (state == State::Running) return limit;
  return std::max(Duration::zero(), nextLook - now);
}

void GapList::Step() {
  if (expansion) {
    ExpandSome();
    if (expansion) nextLook += REST;
  } else if (!gapList.empty()) {
    expansion.emplace(gapList.front(), blockLimit);
    gapList.pop_front();
  } else {
    state = State::Ended;
  }
}

void GapList::ExpandSome() {
  for (int entered = 0; entered < BLOCKS_BETWEEN_RESTS; ++entered) {
    const std::optional<LostBlock> block = expansion->Next();
    if (block && lostMap.Enter(*block)) continue;
    expansion.reset();
    return;
  }
}

}  // namespace quorl
