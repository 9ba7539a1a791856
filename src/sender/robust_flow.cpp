// The flow control of the robust profile. It speaks the same datagrams as the classic one, but every lost one is cured:
//
// - Only the current master's requests count, and they count from the moment it was named; datagrams from addresses
//   outside the table are ignored. So nobody else can make a master look alive or stalled.
// - A master that has not been heard since it was named gets CMD_MASTER (1) again. One that asks but does not come on
//   gets it too, since every receiver answers it with what it lacks at that moment: it may have been the request that
//   was lost. One that lacks nothing gets CMD_MASTER (0) again.
// - Nothing can be complete before the stream is out: what says so is a late copy from an earlier transfer.
// - A receiver that says it is complete is, whenever and however often it says so; a failure that it reports sticks,
//   and counts once.
// - Every receiver that is given up is marked, gets one more turn in the second pass, a longer one if it asks in vain,
//   and is reported if that fails too. So no receiver is left incomplete without a status, and the repair is bounded:
//   two turns for each row, and in a turn no more requests than a transfer of this size can need. A master that asks
//   without end, for one block and another in turns, would else hold the room for as long as it likes.
// - CMD_RELEASE never carries the second-pass byte: it would send a receiver away that still lacks blocks.
#include "sender/robust_flow.h"

#include <quorl/quorl.h>

#include <algorithm>

namespace quorl {

namespace {

// Cycles of about 500 ms in which nothing new has come from the master.
constexpr int IDLE_REPEAT = 2;        ///< One that has been heard gets CMD_MASTER again from this one on.
constexpr int IDLE_MAX = 8;           ///< After these it is given up,
constexpr int IDLE_COMPLETE_MAX = 3;  ///< or taken as complete if its last word was that it lacks nothing.

// Cycles in the second pass, of a master that asks for one block all the time and does not get it. A system that has
// filled its memory for fragments with blocks of which one got lost puts none together any more until it forgets those;
// Linux does after 30 s.
constexpr int IDLE_ASKING_MAX = 70;

// Blocks. Repairs of this size are done in a moment, whatever share of the transfer they are: of a single block, one
// lost datagram would be all.
constexpr uint32_t SMALL_REPAIR = 1000;

// Requests in one turn. A block needs 16 on average when three of four datagrams are lost in either direction.
constexpr uint64_t REQUESTS_PER_BLOCK = 16;
constexpr uint64_t REQUESTS_AT_LEAST = 1000;

constexpr size_t REMEMBERED_REQUESTS = 65536;

}  // namespace

void RobustFlow::StreamSent() {
  if (phase == Phase::Streaming) phase = Phase::Answering;
}

bool RobustFlow::HandOver(Orders& orders) {
  if (phase == Phase::Over) return false;
  phase = Phase::Repairing;
  return NameMaster(-1, orders);
}

bool RobustFlow::TakeAck(const Ack& ack, Endpoint from, Orders& orders) {
  ClientEntry* row = table.Find(from.address);
  if (!row || !HasMaster() || ack.file == 0) return true;
  const bool wantsNothing = ack.file > fileCount;
  if (!IsMaster(*row)) {
    orders.push_back(SendReleaseOrder{from, Release{static_cast<uint8_t>(wantsNothing ? 1 : 0), 0}});
    return true;
  }
  ++requestsInTurn;
  if (HasAskedTooMuch()) {
    GiveUpMaster(false);
    return NameMaster(masterIndex, orders);
  }
  progress.wantsNothing = wantsNothing;
  if (wantsNothing) {
    SendMaster(0, orders);
  } else {
    if (IsNewRequest(ack)) ++progress.blocksAskedFor;
    orders.push_back(ResendOrder{ack.file, ack.block});
  }
  return true;
}

// In a repair of more blocks than are remembered, a request that comes again after so many others counts once more.
bool RobustFlow::IsNewRequest(const Ack& ack) {
  if (askedFor.size() == REMEMBERED_REQUESTS) askedFor.clear();
  return askedFor.insert(uint64_t{ack.file} << 32 | ack.block).second;
}

bool RobustFlow::TakeFinish(uint16_t status, Endpoint from, Orders& orders) {
  ClientEntry* row = table.Find(from.address);
  if (!row || phase == Phase::Over) return true;
  if (status != 0) return TakeFailure(*row, status, orders);
  return !IsStreamSent() || TakeCompletion(*row, orders);
}

bool RobustFlow::TakeAnswer(uint32_t missing, Endpoint from, Orders& orders) {
  ClientEntry* row = table.Find(from.address);
  // A late copy must not undo what has happened since.
  if (!row || !IsStreamSent() || row->HasAnswered()) return true;
  table.TakeAnswer(from.address, missing, totalBlocks, SMALL_REPAIR);
  return missing != 0 || TakeCompletion(*row, orders);
}

bool RobustFlow::HasAskedTooMuch() const {
  return requestsInTurn > std::max(REQUESTS_AT_LEAST, REQUESTS_PER_BLOCK * totalBlocks);
}

bool RobustFlow::TakeCompletion(ClientEntry& row, Orders& orders) {
  row.complete = true;
  row.noTurn = true;
  row.needsTurn = false;
  if (!row.reportedFailure) row.status = 0;
  return !IsMaster(row) || NameMaster(masterIndex, orders);
}

bool RobustFlow::TakeFailure(ClientEntry& row, uint16_t status, Orders& orders) {
  row.status = status;
  // The host is told of each receiver once, so that none can flood it with ever new failures.
  if (row.reportedFailure) return true;
  ++failedCount;
  row.reportedFailure = true;
  row.needsTurn = false;
  orders.push_back(ClientErrorOrder{status, row.addr.address});
  if (failedCount >= table.Count()) return End(0, orders);
  return !IsMaster(row) || NameMaster(masterIndex, orders);
}

WatchNext RobustFlow::Watch(Orders& orders) {
  if (!HasMaster()) return WatchNext::End;
  if (progress != watched) {
    watched = progress;
    idleCycles = silentCycles = 0;
    return WatchNext::Pause;
  }
  ++idleCycles;
  silentCycles = requestsInTurn == watchedRequests ? silentCycles + 1 : 0;
  watchedRequests = requestsInTurn;
  const bool heard = requestsInTurn != 0;
  const bool wantsNothing = progress.wantsNothing;
  if (IsGivenUp(wantsNothing)) {
    GiveUpMaster(wantsNothing);
    if (!NameMaster(masterIndex, orders)) return WatchNext::End;
    watched = progress;
    idleCycles = silentCycles = 0;
    return WatchNext::Pause;
  }
  if (!heard || idleCycles >= IDLE_REPEAT) SendMaster(wantsNothing ? 0 : 1, orders);
  return WatchNext::Pause;
}

std::optional<int32_t> RobustFlow::CurrentMaster() const {
  return HasMaster() ? std::optional(masterIndex) : std::nullopt;
}

bool RobustFlow::IsMasterSilent() const {
  return HasMaster() && idleCycles >= IDLE_REPEAT;
}

void RobustFlow::SendMaster(uint32_t state, Orders& orders) const {
  orders.push_back(SendMasterOrder{table[masterIndex].addr, state});
}

/// The next master after row `current`. False when none is left and the transfer is over.
bool RobustFlow::NameMaster(int32_t current, Orders& orders) {
  masterIndex = NextMaster(current);
  if (masterIndex == table.Count()) {
    ReportUnserved();
    return End(EndCode(), orders);
  }
  table[masterIndex].needsTurn = false;
  progress = {.turn = progress.turn + 1};
  requestsInTurn = 0;
  askedFor.clear();
  SendMaster(1, orders);
  return true;
}

int32_t RobustFlow::NextMaster(int32_t current) {
  const int32_t count = table.Count();
  if (!secondPass) {
    for (int32_t next = current + 1; next < count; ++next)
      if (table[next].IsCandidate()) return next;
    secondPass = true;
    current = -1;
  }
  for (int32_t next = current + 1; next < count; ++next)
    if (table[next].needsTurn) return next;
  return count;
}

bool RobustFlow::IsGivenUp(bool wantsNothing) const {
  if (wantsNothing) return idleCycles > IDLE_COMPLETE_MAX;
  return silentCycles > IDLE_MAX || idleCycles > (secondPass ? IDLE_ASKING_MAX : IDLE_MAX);
}

void RobustFlow::GiveUpMaster(bool wantsNothing) {
  ClientEntry& row = table[masterIndex];
  if (wantsNothing) {
    row.complete = true;
    row.noTurn = true;
    if (!row.reportedFailure) row.status = 0;
    return;
  }
  if (!row.reportedFailure) row.status = QUORL_STATUS_TIMED_OUT;
  row.needsTurn = !secondPass && !row.reportedFailure;
}

/// Who came into the table too late for a turn is not complete as far as anybody knows.
void RobustFlow::ReportUnserved() {
  for (int32_t i = 0; i < table.Count(); ++i)
    if (!table[i].complete && table[i].status == 0) table[i].status = QUORL_STATUS_TIMED_OUT;
}

bool RobustFlow::End(uint32_t code, Orders& orders) {
  phase = Phase::Over;
  orders.push_back(EndOrder{code});
  return false;
}

/// A room in which nobody came to the end, and somebody was given up, has timed out as a whole.
uint32_t RobustFlow::EndCode() const {
  bool givenUp = false;
  for (int32_t i = 0; i < table.Count(); ++i) {
    if (table[i].complete) return QUORL_STATUS_DONE;
    givenUp = givenUp || table[i].status == QUORL_STATUS_TIMED_OUT;
  }
  return givenUp ? QUORL_STATUS_TIMED_OUT : QUORL_STATUS_DONE;
}

}  // namespace quorl
