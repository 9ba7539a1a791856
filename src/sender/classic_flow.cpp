// The flow control of the classic profile, to its letter.
//
// A master that lacks nothing is told CMD_MASTER (0), answers CMD_FINISH (0) and leaves; then the next one is named.
// The watchdog looks every 500 ms whether a new request has come. Without one it repeats CMD_MASTER to a master that
// has said it lacks nothing or has just been named, serves the latest request again to one that asks in vain, and after
// some cycles marks the master for the second pass and names another. Its five counters are independent: one that is
// not reset by a rule keeps its value, also across masters.
//
// Any address of the network can send a CMD_ACK and so change what the watchdog sees; the cost is bounded to replaced
// masters and repeated blocks.
#include "sender/classic_flow.h"

#include <quorl/quorl.h>

namespace quorl {

namespace {

constexpr int SILENT_TRIES_MAX = 3;
constexpr int DONE_IDLE_MAX = 3;
constexpr int NEW_MASTER_IDLE_MAX = 8;
constexpr int STALL_RESEND = 2;
constexpr int STALL_MAX = 8;
constexpr int RESTARTS_MAX = 2;

}  // namespace

// Nothing else is reset: a master of the transfer before is still one, and served, until the stream is out.
void ClassicFlow::BeginTransfer(uint32_t count) {
  fileCount = count;
  firstMasterPending = true;
  watchdog = {};
  table.ForgetAnswers();
}

bool ClassicFlow::HandOver(Orders& orders) {
  masterIndex = NextMaster(table, pass, -1);
  return SendMaster(1, true, orders);
}

bool ClassicFlow::TakeAck(const Ack& ack, Endpoint from, Orders& orders) {
  latestAck = {ack.file, ack.block};
  if (IsMaster(from)) {
    if (WantsNothing()) {
      firstMasterPending = false;
      return SendMaster(0, false, orders);
    }
    ResendBlock(orders);
    return true;
  }
  const uint8_t allSent = WantsNothing() ? 1 : 0;
  orders.push_back(SendReleaseOrder{from, Release{allSent, static_cast<uint8_t>(pass.secondPass)}});
  if (allSent) return true;
  if (ClientEntry* row = table.Find(from.address)) {
    row->needsTurn = true;
    row->status = QUORL_STATUS_TIMED_OUT;
  }
  pass.turnsPending = true;
  return true;
}

bool ClassicFlow::TakeFinish(uint16_t status, Endpoint from, Orders& orders) {
  ClientEntry* row = table.Find(from.address);
  if (status != 0) {
    if (row) {
      row->status = status;
      // A receiver may report several files: the room has failed when every receiver has, not when one repeats itself.
      if (!row->reportedFailure) ++failedCount;
      row->reportedFailure = true;
    }
    if (table.Count() > 0) orders.push_back(ClientErrorOrder{status, from.address});
    if (failedCount < table.Count()) return true;
    orders.push_back(EndOrder{0});
    return false;
  }
  if (row) row->complete = true;
  if (!IsMaster(from)) return true;
  row->needsTurn = false;
  row->status = 0;
  return ReplaceMaster(orders);
}

bool ClassicFlow::TakeAnswer(uint32_t missing, Endpoint from, Orders&) {
  table.TakeAnswer(from.address, missing, totalBlocks);
  return true;
}

std::optional<int32_t> ClassicFlow::CurrentMaster() const {
  return HasMaster() ? std::optional(masterIndex) : std::nullopt;
}

bool ClassicFlow::IsMaster(Endpoint receiver) const {
  return HasMaster() && table[masterIndex].addr.address == receiver.address;
}

/// False when there is no master and the transfer is over.
bool ClassicFlow::SendMaster(uint32_t state, bool recheck, Orders& orders) {
  if (state != 0 && recheck && HasMaster() && table[masterIndex].status != 0) {
    table[masterIndex].status = QUORL_STATUS_TIMED_OUT;
    masterIndex = NextMaster(table, pass, masterIndex);
  }
  if (!HasMaster()) {
    orders.push_back(EndOrder{0});
    return false;
  }
  orders.push_back(SendMasterOrder{table[masterIndex].addr, state});
  return true;
}

bool ClassicFlow::ReplaceMaster(Orders& orders) {
  masterIndex = NextMaster(table, pass, masterIndex);
  return SendMaster(1, false, orders);
}

/// The master has not come to its end: it is to have another turn.
void ClassicFlow::MarkMaster() {
  pass.turnsPending = true;
  if (!HasMaster()) return;
  table[masterIndex].needsTurn = true;
  table[masterIndex].status = QUORL_STATUS_TIMED_OUT;
}

void ClassicFlow::ResendBlock(Orders& orders) const {
  if (latestAck.file != 0) orders.push_back(ResendOrder{latestAck.file, latestAck.block});
}

WatchNext ClassicFlow::Watch(Orders& orders) {
  if (latestAck == Request{} && !watchdog.roomAddressed) return WatchSilentRoom(orders);
  watchdog.roomAddressed = false;
  if (watchdog.remembered.file != 0 && latestAck == watchdog.remembered) {
    if (!WantsNothing()) return WatchStalledMaster(orders);
    return masterIndex == masterSeen ? WatchIdleMaster(orders) : WatchNewMaster(orders);
  }
  watchdog.remembered = latestAck;
  watchdog.stall = 0;
  return WatchNext::Pause;
}

/// Nobody has asked for anything yet.
WatchNext ClassicFlow::WatchSilentRoom(Orders& orders) {
  if (watchdog.silentTries > SILENT_TRIES_MAX) {
    orders.push_back(EndOrder{QUORL_STATUS_TIMED_OUT});
    return WatchNext::End;
  }
  masterIndex = NextMaster(table, pass, -1);
  SendMaster(1, true, orders);
  ++watchdog.silentTries;
  watchdog.roomAddressed = true;
  return WatchNext::PauseInCycle;
}

/// The latest request said that nothing is lacking, and its sender has gone quiet.
WatchNext ClassicFlow::WatchIdleMaster(Orders& orders) {
  ++watchdog.doneIdle;
  if (watchdog.doneIdle > DONE_IDLE_MAX) {
    if (!ReplaceMaster(orders)) return WatchNext::End;
    watchdog.doneIdle = 0;
    return WatchNext::AtOnce;
  }
  if (watchdog.doneIdle > 1 && !SendMaster(0, false, orders)) return WatchNext::End;
  return WatchNext::Pause;
}

/// A master has been named since the latest datagram, and nothing has come from it.
WatchNext ClassicFlow::WatchNewMaster(Orders& orders) {
  watchdog.doneIdle = 0;
  if (!SendMaster(1, false, orders)) return WatchNext::End;
  ++watchdog.newMasterIdle;
  if (watchdog.newMasterIdle <= NEW_MASTER_IDLE_MAX) return WatchNext::Pause;
  MarkMaster();
  if (!ReplaceMaster(orders)) return WatchNext::End;
  watchdog.newMasterIdle = 0;
  return WatchNext::AtOnce;
}

/// The latest request names a block and does not change.
WatchNext ClassicFlow::WatchStalledMaster(Orders& orders) {
  watchdog.newMasterIdle = 0;
  ++watchdog.stall;
  if (watchdog.stall == STALL_RESEND) ResendBlock(orders);
  if (watchdog.stall <= STALL_MAX) return WatchNext::Pause;
  return firstMasterPending ? GiveUpFirstMaster(orders) : GiveUpLaterMaster(orders);
}

/// While no master has come to its end, only so many are given up: something is wrong with the whole room.
WatchNext ClassicFlow::GiveUpFirstMaster(Orders& orders) {
  if (watchdog.restarts <= RESTARTS_MAX) {
    ++watchdog.restarts;
    watchdog.remembered = {};
    MarkMaster();
    if (table.Count() != 1) {
      ReplaceMaster(orders);
      return WatchNext::Pause;
    }
  }
  orders.push_back(EndOrder{QUORL_STATUS_TIMED_OUT});
  return WatchNext::End;
}

WatchNext ClassicFlow::GiveUpLaterMaster(Orders& orders) {
  if (HasMaster()) {
    MarkMaster();
    if (!ReplaceMaster(orders)) return WatchNext::End;
  }
  watchdog.remembered = {1, 0};
  watchdog.stall = 0;
  return WatchNext::Pause;
}

}  // namespace quorl
