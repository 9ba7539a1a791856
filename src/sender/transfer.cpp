// A transfer's threads.
//
// SendThread streams every block, tells the receivers that the stream is over, waits for their answers and hands over
// to the flow control. ReportThread sends the heartbeat by which receivers know that the sender lives.
// MasterWatchThread looks after the master. All three pause on one event, so that a stop and a close reach them at
// once, in both profiles: a host that has closed its sender may unload the library. ReportThread, which a close has
// woken, finds its socket closed and tells the host; the others end without a word.
//
// Each StartSend has a ReplyThread of its own. One that has ended, since everybody failed or the last transfer is over,
// would else leave the next transfer in the same session deaf.
//
// The stream does not care whether the transfer has ended: when every receiver has failed meanwhile, others that were
// never in the table may still be taking it in.
//
// A disk can keep the thread that reads from it for as long as it likes. While it keeps one that carries out an order,
// the watchdog waits: nobody is given up for an answer that has not been sent. In the robust profile ReportThread,
// which touches no disk, gives the transfer up when that takes too long.
#include "sender/transfer.h"

#include "sender/announcements.h"
#include "sender/symbol_offers.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration FINISH_PAUSE = 500ms;  ///< Before and after CMD_FINISH.

/// Robust, before it: what comes late does no harm there, and each receiver takes its datagrams in their order.
constexpr Duration SHORT_FINISH_PAUSE = 20ms;

constexpr Duration OFFER_PAUSE = 20ms;
constexpr Duration REPORT_PERIOD = 5000ms;
constexpr Duration WATCH_START = 1000ms;
constexpr Duration WATCH_PERIOD = 500ms;
constexpr Duration THREAD_END_LIMIT = 5000ms;  ///< A thread can hang in a read of a file; nobody hangs with it.

/// Disks spin up and network drives fail over in less.
constexpr Duration DISK_PATIENCE = 60s;

}  // namespace

Transfer::Transfer(std::shared_ptr<SenderContext> sharedContext, TransferPlan newPlan)
    : context(std::move(sharedContext)),
      plan(std::move(newPlan)),
      progress(*context, plan),
      end(*context, progress),
      stream({*context, plan, progress, end}),
      coded({*context, plan, progress, end}),
      repair({*context, plan, progress, end}),
      orders(context->mutex, context->counters, [this](const Order& order) { repair.CarryOut(order); }) {}

void Transfer::Supersede(Transfer& earlier) {
  earlier.end.RequestStop();
  context->BeginTransfer(plan.FileCount());
}

void Transfer::Start() {
  progress.Advance(SendPhase::Ready, SendPhase::Announcing);
  if (!end.IsReady()) {
    context->Debug("\nQuorl------Create the Send Thread Failed!\n");
    progress.Reach(SendPhase::Ended);
    return;
  }
  if (!Announce() || end.IsStopRequested()) return;
  StartThread("SendThread", &Transfer::SendThread, "\nQuorl------Create the Send Thread Failed!\n");
  StartThread("ReportThread", &Transfer::ReportThread, "\nQuorl------Create the Send Report Thread Failed!\n");
}

bool Transfer::Announce() {
  const SendWait patience = end.Patience();
  if (!SendServerOs(*context, patience)) return FailToAnnounce("\nQuorl-----Send Server OS Packet Failed!\n");
  if (!plan.autoOpenName.empty()) SendAutoOpenName(*context, plan.autoOpenName, patience);
  BlockCount blocks = CountBlocks(context->machine.files, *plan.lists);
  if (!blocks.fits && IsRobust()) return FailToCount();
  const Task task{blocks.total, plan.FileCount(), plan.targetFolder, NameField::From(plan.targetPath)};
  {
    const std::scoped_lock lock(context->mutex);
    // Stopped from another thread: nobody is to get ready for a transfer that does not come.
    if (end.IsStopRequested()) return false;
    context->flow->BlocksCounted(blocks.total);
    progress.NoteAnnounced(std::move(blocks));
  }
  announced = true;
  if (!SendTask(*context, task, patience)) return FailToAnnounce("\nQuorl-----Send  Task Packet Failed!\n");
  int32_t receivers = 0;
  {
    const std::scoped_lock lock(context->mutex);
    receivers = context->table.Count();
  }
  context->Post(WM_TASK_INFO, static_cast<uintptr_t>(receivers), static_cast<intptr_t>(task.totalBlocks));
  if (SendEmptyDirs(*context, *plan.lists, patience)) return true;
  // The classic threads start all the same, and find the sockets closed.
  return FailToAnnounce("\nQuorl-----Send Empty Directory Failed!\n") || !IsRobust();
}

bool Transfer::FailToAnnounce(const char* debugLine) {
  if (IsRobust()) {
    end.FailSend(debugLine);
  } else {
    context->Debug(debugLine);
    context->sockets.Close();
    progress.Reach(SendPhase::Ended);
  }
  return false;
}

bool Transfer::FailToCount() {
  context->Debug("\nQuorl-----Too many blocks to send!\n");
  end.RequestStop();
  context->Post(WM_TRANS_STATUS, QUORL_STATUS_FILE_UNREADABLE, 0);
  return false;
}

void Transfer::StartThread(const char* name, void (Transfer::*run)(), const char* failure) {
  auto thread =
      context->machine.threads.Start(name, Priority::Normal, [self = shared_from_this(), run] { ((*self).*run)(); });
  if (!Adopt(std::move(thread))) context->Debug(failure);
}

bool Transfer::Adopt(std::shared_ptr<Thread> thread) {
  if (!thread) return false;
  const std::scoped_lock lock(context->mutex);
  threads.push_back(std::move(thread));
  return true;
}

void Transfer::SendThread() {
  const Moment start = context->machine.clock.Now();
  progress.Advance(SendPhase::Announcing, SendPhase::Streaming);
  if (!RunStream()) return;
  progress.Advance(SendPhase::Streaming, SendPhase::Finishing);
  if (!end.Pause(IsRobust() ? SHORT_FINISH_PAUSE : FINISH_PAUSE)) return;
  {
    const std::scoped_lock lock(context->mutex);
    if (end.IsStopRequested()) return;
    context->flow->StreamSent();
  }
  if (!SendFinish() || !WaitForAnswers()) return;
  const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(context->machine.clock.Now() - start);
  context->Debug("Time = " + std::to_string(taken.count()) + "\n");
  HandOver();
}

/// False when not every block is out; the host and the receivers have been told then.
bool Transfer::RunStream() {
  switch (PrepareSymbols() ? coded.Run() : stream.Run()) {
    case StreamEnd::Complete: return true;
    case StreamEnd::Stopped: break;
    case StreamEnd::SendFailed: end.FailSend("\nQuorl-----Send Data form write file!\n"); break;
    case StreamEnd::FileUnreadable: {
      const std::scoped_lock lock(context->mutex);
      orders.Append({EndOrder{QUORL_STATUS_FILE_UNREADABLE}});
    }
  }
  CarryOutOrders();
  return false;
}

bool Transfer::PrepareSymbols() {
  // Of those who have been heard of only since the announcement.
  while (OfferSymbolsAgain(*context, end.Patience()))
    if (!end.Pause(OFFER_PAUSE)) return false;
  {
    const std::scoped_lock lock(context->mutex);
    if (!CodedStream::Reaches(*context)) return false;
  }
  return coded.Prepare();
}

/// False when the transfer has come to its end by that.
bool Transfer::SendFinish() {
  const auto finish = Build(Finish{});
  for (int i = 0; i < ANNOUNCEMENT_COPIES; ++i) {
    if (!context->sockets.SendToGroup(finish, end.Patience())) {
      FailToAnnounce("\nQuorl-----Send CMD_FINISH Failed\n");
      return !IsRobust();
    }
    const bool isLast = i + 1 == ANNOUNCEMENT_COPIES;
    if (!isLast || !IsRobust()) context->machine.clock.Sleep(ANNOUNCEMENT_PAUSE);
  }
  return true;
}

bool Transfer::WaitForAnswers() {
  if (!IsRobust()) return end.Pause(FINISH_PAUSE);
  {
    const std::scoped_lock lock(context->mutex);
    if (context->table.AllAnswered()) return !end.IsWoken();
  }
  end.Answered()->Wait(FINISH_PAUSE);
  return !end.IsWoken();
}

void Transfer::HandOver() {
  progress.Advance(SendPhase::Finishing, SendPhase::Repairing);
  bool hasMaster = false;
  {
    const std::scoped_lock lock(context->mutex);
    if (end.IsStopRequested()) return;
    Orders decided;
    hasMaster = context->flow->HandOver(decided);
    orders.Append(decided);
  }
  CarryOutOrders();
  if (!hasMaster) return;
  StartThread("MasterWatch", &Transfer::MasterWatchThread, "\nQuorl------Create the Master Watch Thread Failed!\n");
}

void Transfer::MasterWatchThread() {
  if (!end.Pause(WATCH_START)) return;
  WatchNext next = WatchNext::AtOnce;
  while (next == WatchNext::PauseInCycle || !IsOver()) {
    bool isHeldUp = false;
    {
      const std::scoped_lock lock(context->mutex);
      if (end.IsStopRequested()) return;
      isHeldUp = orders.IsHeldUp();
      Orders decided;
      if (!isHeldUp) next = context->flow->Watch(decided);
      orders.Append(decided);
    }
    CarryOutOrders();
    if (next == WatchNext::End) return;
    if ((isHeldUp || next != WatchNext::AtOnce) && !end.Pause(WATCH_PERIOD)) return;
  }
}

void Transfer::ReportThread() {
  const auto report = Build(Report{});
  while (!IsOver()) {
    if (IsRobust() &&
        (stream.IsStuckFor(DISK_PATIENCE) || coded.IsStuckFor(DISK_PATIENCE) || repair.IsStuckFor(DISK_PATIENCE)))
      return end.GiveUp(QUORL_STATUS_FILE_UNREADABLE);
    if (!context->sockets.SendReport(report, end.Patience()))
      return end.FailSend("\nQuorl-----Send Report Data Failed!\n");
    end.Pause(REPORT_PERIOD);
  }
}

bool Transfer::TakeReply(const FromReceiver& reply, Endpoint from) {
  if (end.IsStopRequested()) return false;
  const auto* lacks = std::get_if<Lacks>(&reply);
  if (IsRobust()) {
    if (!announced) return true;
    // What it said when it joined may have been lost.
    if (lacks && coded.IsMine(*lacks)) context->table.AddClient(from);
    if (!context->table.Find(from.address)) {
      // What is not understood, or finds the table full, has been counted for that.
      const bool isCounted = std::holds_alternative<Reject>(reply) || std::holds_alternative<Client>(reply);
      if (!isCounted) context->counters.Add(Count::DroppedStranger);
      return true;
    }
  }
  if (lacks) {
    if (coded.IsMine(*lacks)) coded.TakeLacks(*lacks, from.address);
    return true;
  }
  Orders decided;
  const bool goesOn = TakeParsed(reply, from, decided);
  if (goesOn) context->flow->DatagramHandled();
  orders.Append(decided);
  if (context->table.AllAnswered()) end.Answered()->Set();
  return goesOn;
}

bool Transfer::TakeParsed(const FromReceiver& reply, Endpoint from, Orders& decided) {
  MasterFlow& flow = *context->flow;
  if (const auto* ack = std::get_if<Ack>(&reply)) {
    if (ack->file >= 1 && ack->file <= plan.FileCount()) context->counters.Add(Count::RepairsAsked);
    return flow.TakeAck(*ack, from, decided);
  }
  if (const auto* finish = std::get_if<Finish>(&reply)) return flow.TakeFinish(finish->status, from, decided);
  if (const auto* answer = std::get_if<Answer>(&reply)) return flow.TakeAnswer(answer->missingBlocks, from, decided);
  return true;
}

void Transfer::ReplyThreadEnds() {
  {
    const std::scoped_lock lock(context->mutex);
    orders.Append({CloseResendFileOrder{}});
  }
  CarryOutOrders();
}

void Transfer::Stop() {
  // First the own threads, so that no block follows the news that the transfer is over.
  end.RequestStop();
  end.SendStopWithoutThem();
}

void Transfer::Close() {
  context->sockets.Close();
  progress.Reach(progress.Phase() == SendPhase::Ready ? SendPhase::Idle : SendPhase::Ended);
  end.Wake();
}

void Transfer::Abandon() {
  end.RequestStop();
  for (size_t i = 0;; ++i) {
    std::shared_ptr<Thread> thread;
    {
      const std::scoped_lock lock(context->mutex);
      if (i == threads.size()) return;
      thread = threads[i];
    }
    thread->WaitForEnd(THREAD_END_LIMIT);
  }
}

SendState Transfer::State() const {
  SendState state = progress.State();
  state.otherSender = context->sockets.OtherSender();
  for (int32_t row = 0; row < context->table.Count(); ++row) state.receivers.push_back(ReportOn(row));
  return state;
}

UnderWay Transfer::Describe() const {
  const SendState state = progress.State();
  return {.session = context->correspondence.OurOffer().session,
          .totalBlocks = state.totalBlocks,
          .sentBlocks = static_cast<uint32_t>(state.blocksSent + state.blocksSkipped)};
}

ReceiverReport Transfer::ReportOn(int32_t row) const {
  const ClientEntry& entry = context->table[row];
  ReceiverReport report{entry.addr.address, ReceiverState::Waiting, entry.status, entry.missing,
                        entry.peer.capabilities};
  const SendPhase reached = progress.Phase();
  if (entry.status != 0) {
    report.state = ReceiverState::Failed;
  } else if (entry.complete) {
    report.state = ReceiverState::Complete;
  } else if (reached == SendPhase::Idle || reached == SendPhase::Ready) {
    report.state = ReceiverState::Listening;
  } else if (reached == SendPhase::Repairing && context->flow->CurrentMaster() == row) {
    report.state = context->flow->IsMasterSilent() ? ReceiverState::Silent : ReceiverState::Master;
  }
  return report;
}

}  // namespace quorl
