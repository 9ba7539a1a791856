// Who becomes master next: every receiver that may lack something in table order, then in a second pass those that were
// marked while they had, or should have had, their turn.
//
// Row 0 is special in the second pass. Started from row 0 the pass is entered only when a higher row is marked, but
// then row 0 comes first if it is marked itself; and while row 0 is master it can be named again.
#include "sender/next_master.h"

namespace quorl {

namespace {

int32_t NextMarked(const ReceiverTable& table, int32_t start) {
  const int32_t count = table.Count();
  if (start >= count - 1) return count;
  int32_t highest = count - 1;
  while (highest > start && !table[highest].needsTurn) --highest;
  if (highest == start) return count;
  int32_t next = start == 0 ? 0 : start + 1;
  while (!table[next].needsTurn) ++next;
  return next;
}

}  // namespace

int32_t NextMaster(const ReceiverTable& table, PassState& pass, int32_t current) {
  if (pass.secondPass) return NextMarked(table, current);
  const int32_t count = table.Count();
  const bool atEnd = current == count - 1;
  if (!atEnd)
    for (int32_t next = current + 1; next < count; ++next)
      if (table[next].IsCandidate()) return next;
  pass.secondPass = true;
  if (!atEnd && !pass.turnsPending) return count;
  return NextMarked(table, 0);
}

}  // namespace quorl
