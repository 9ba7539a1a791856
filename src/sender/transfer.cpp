// A transfer's threads.
//
// SendThread streams every block, tells the receivers that the stream is over, waits for their answers and hands over
// to the flow control. ReportThread sends the heartbeat by which receivers know that the sender lives.
// MasterWatchThread looks after the master. All three pause on one event, so that a stop reaches them at once; a thread
// that is woken without having been stopped goes on and finds the sockets closed.
//
// The stream does not care whether the transfer has ended: when every receiver has failed meanwhile, others that were
// never in the table may still be taking it in.
#include "sender/transfer.h"

#include "sender/announcements.h"
#include "sender/data_stream.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration FINISH_PAUSE = 500ms;  ///< Before and after CMD_FINISH.
constexpr Duration REPORT_PERIOD = 5000ms;
constexpr Duration WATCH_START = 1000ms;
constexpr Duration WATCH_PERIOD = 500ms;
constexpr Duration THREAD_END_LIMIT = 5000ms;  ///< A thread can hang in a read of a file; nobody hangs with it.

}  // namespace

Transfer::Transfer(std::shared_ptr<SenderContext> context, TransferPlan plan)
    : context(std::move(context)),
      plan(std::move(plan)),
      wake(this->context->machine.threads.MakeEvent()),
      replyStop(this->context->machine.threads.MakeEvent()),
      answered(this->context->machine.threads.MakeEvent()),
      flow(MakeMasterFlow(this->context->profile, this->context->table,
                          static_cast<uint32_t>(this->plan.lists->ArraySendFile.size()), this->plan.blocks.total)),
      orders(this->context->mutex, this->context->counters, [this](const Order& order) { repair.CarryOut(order); }),
      repair(*this, this->plan.rate) {}

void Transfer::Start() {
  Advance(SendPhase::Ready, SendPhase::Announcing);
  if (!wake || !answered) {
    context->Debug("\nQuorl------Create the Send Thread Failed!\n");
    phase = SendPhase::Ended;
    return;
  }
  if (!Announce()) {
    CloseSockets();
    phase = SendPhase::Ended;
    return;
  }
  if (IsStopRequested()) return;
  if (!SendEmptyDirs(*context, *plan.lists)) CloseSockets();
  StartThread("SendThread", &Transfer::SendThread, "\nQuorl------Create the Send Thread Failed!\n");
  StartThread("ReportThread", &Transfer::ReportThread, "\nQuorl------Create the Send Report Thread Failed!\n");
}

bool Transfer::Announce() {
  if (!SendServerOs(*context)) return false;
  if (!plan.autoOpenName.empty()) SendAutoOpenName(*context, plan.autoOpenName);
  // Stopped from another thread: nobody is to get ready for a transfer that does not come.
  if (IsStopRequested()) return true;
  const Task task{plan.blocks.total, static_cast<uint32_t>(plan.lists->ArraySendFile.size()), plan.targetFolder,
                  NameField::From(plan.targetPath)};
  announced = true;
  if (!SendTask(*context, task)) return false;
  int32_t receivers = 0;
  {
    const std::scoped_lock lock(context->mutex);
    receivers = context->table.Count();
  }
  context->Post(WM_TASK_INFO, static_cast<uintptr_t>(receivers), static_cast<intptr_t>(plan.blocks.total));
  return true;
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
  Advance(SendPhase::Announcing, SendPhase::Streaming);
  if (!DataStream(*this).Run()) return;
  Advance(SendPhase::Streaming, SendPhase::Finishing);
  if (!Pause(FINISH_PAUSE)) return;
  {
    const std::scoped_lock lock(context->mutex);
    flow->StreamSent();
  }
  SendFinish();
  if (!WaitForAnswers()) return;
  const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(context->machine.clock.Now() - start);
  context->Debug("Time = " + std::to_string(taken.count()) + "\n");
  HandOver();
}

bool Transfer::WaitForAnswers() {
  if (context->profile == Profile::Classic) return Pause(FINISH_PAUSE);
  {
    const std::scoped_lock lock(context->mutex);
    if (context->table.AllAnswered()) return !wake->IsSet();
  }
  answered->Wait(FINISH_PAUSE);
  return !wake->IsSet();
}

void Transfer::HandOver() {
  Advance(SendPhase::Finishing, SendPhase::Repairing);
  bool hasMaster = false;
  {
    const std::scoped_lock lock(context->mutex);
    Orders decided;
    hasMaster = flow->HandOver(decided);
    orders.Append(decided);
  }
  CarryOutOrders();
  if (!hasMaster) return;
  StartThread("MasterWatch", &Transfer::MasterWatchThread, "\nQuorl------Create the Master Watch Thread Failed!\n");
}

void Transfer::MasterWatchThread() {
  if (!Pause(WATCH_START)) return;
  WatchNext next = WatchNext::AtOnce;
  while (next == WatchNext::PauseInCycle || !IsOver()) {
    {
      const std::scoped_lock lock(context->mutex);
      Orders decided;
      next = flow->Watch(decided);
      orders.Append(decided);
    }
    CarryOutOrders();
    if (next == WatchNext::End) return;
    if (next != WatchNext::AtOnce && !Pause(WATCH_PERIOD)) return;
  }
}

void Transfer::ReportThread() {
  const auto report = Build(Report{});
  while (!IsOver()) {
    if (!context->sockets.SendReport(report)) return FailSend("\nQuorl-----Send Report Data Failed!\n");
    Pause(REPORT_PERIOD);
  }
}

bool Transfer::TakeReply(const FromReceiver& reply, Endpoint from) {
  if (context->profile == Profile::Robust) {
    if (!announced) return true;
    if (!context->table.Find(from.address)) {
      // What is not understood, or finds the table full, has been counted for that.
      const bool isCounted = std::holds_alternative<Reject>(reply) || std::holds_alternative<Client>(reply);
      if (!isCounted) context->counters.Add(Count::DroppedStranger);
      return true;
    }
  }
  Orders decided;
  const bool goesOn = TakeParsed(reply, from, decided);
  if (goesOn) flow->DatagramHandled();
  orders.Append(decided);
  if (context->table.AllAnswered() && answered) answered->Set();
  return goesOn;
}

bool Transfer::TakeParsed(const FromReceiver& reply, Endpoint from, Orders& decided) {
  if (const auto* ack = std::get_if<Ack>(&reply)) {
    if (ack->file >= 1 && ack->file <= plan.lists->ArraySendFile.size()) context->counters.Add(Count::RepairsAsked);
    return flow->TakeAck(*ack, from, decided);
  }
  if (const auto* finish = std::get_if<Finish>(&reply)) return flow->TakeFinish(finish->status, from, decided);
  if (const auto* answer = std::get_if<Answer>(&reply)) return flow->TakeAnswer(answer->missingBlocks, from, decided);
  return true;
}

bool Transfer::PauseUntil(Moment moment) {
  Clock& clock = context->machine.clock;
  for (Duration left = moment - clock.Now(); left > Duration::zero(); left = moment - clock.Now())
    if (wake->Wait(left)) return false;
  return !wake->IsSet();
}

void Transfer::Wake() {
  if (wake) wake->Set();
  if (answered) answered->Set();
}

void Transfer::Abandon() {
  stopRequested = true;
  phase = SendPhase::Ended;
  Wake();
  if (replyStop) replyStop->Set();
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

}  // namespace quorl
