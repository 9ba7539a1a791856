// LostThread: turns the gaps that the receive loop noticed into missing blocks, so that a gap of thousands of blocks
// does not keep the loop from its socket.
#include "receiver/receiver_session.h"
#include "receiver/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration EMPTY_LIST_POLL = 10ms;

// After so many blocks of one gap the thread lets others run.
constexpr int BLOCKS_BETWEEN_YIELDS = 12;
constexpr Duration YIELD = 2ms;

void Expand(ReceiverSession& session, const MissingBlocks::TakenGap& gap) {
  GapExpansion expansion(gap.record, gap.blockLimit);
  int entered = 0;
  while (const std::optional<LostBlock> block = expansion.Next()) {
    if (!session.missing.EnterExpanded(gap.generation, *block)) return;
    if (++entered < BLOCKS_BETWEEN_YIELDS) continue;
    if (session.stop.Stopped().Wait(YIELD)) return;
    entered = 0;
  }
}

}  // namespace

void LostThread(ReceiverSession& session) {
  while (!session.stop.IsStopped()) {
    if (const auto gap = session.missing.TakeGap()) {
      Expand(session, *gap);
    } else if (session.IsAnswerPending()) {
      session.stop.Stopped().Wait(EMPTY_LIST_POLL);
    } else if (session.missing.EndExpansion()) {
      break;
    }
  }
  session.lostDone->Set();
}

}  // namespace quorl
