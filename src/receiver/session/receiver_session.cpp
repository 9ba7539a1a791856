// The receiver's life: set-up, threads, teardown. The host's thread brings a session up and tears it down; a receiver
// thread that cannot reach its sender tears it down as well.
#include "receiver/session/receiver_session.h"

#include <algorithm>
#include <array>
#include <utility>

#include "receiver/session/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration TEARDOWN_LIMIT = 5000ms;

}  // namespace

ReceiverSession::ReceiverSession(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room,
                                 Profile profile, const std::string& receiveRoot, std::shared_ptr<Mail> sharedMail)
    : machine(machine),
      rules(RulesOf(profile)),
      sockets(this->machine, room, counters, rules.dataBuffer),
      replies(this->machine, sockets, counters),
      host(machine.windows, hostWindow, counters),
      repair(record.With([&](BlockRecord& blocks) { return MakeBlockRepair(profile, blocks, counters); })),
      writer(*this),
      mail(std::move(sharedMail)),
      receiveRoot(receiveRoot) {}

ReceiverSession::~ReceiverSession() {
  // A file that cannot be written now starts no teardown any more.
  closed = true;
  CloseLeftovers();
}

bool ReceiverSession::PrepareEvents() {
  recvDone = machine.threads.MakeEvent();
  writeDone = machine.threads.MakeEvent();
  wake = machine.threads.MakeEvent();
  announced = machine.threads.MakeEvent();
  return recvDone && writeDone && wake && announced && queue.Prepare(machine.threads) &&
         stop.Prepare(machine.threads, queue.News());
}

bool ReceiverSession::OpenSockets() {
  const ReceiverSockets::SetUp result = sockets.Open();
  // After Released the socket library has been given back already.
  holdsNetwork = result != ReceiverSockets::SetUp::Released;
  ready = result == ReceiverSockets::SetUp::Ready;
  if (result == ReceiverSockets::SetUp::TearDown) CloseAll();
  return ready;
}

void ReceiverSession::StartReceive(uint32_t onlySender) {
  const std::scoped_lock locked(threadsLock);
  if (!ready || closed || receiveThread || writeThread) return;
  sender.Name(onlySender);
  receiveThread = StartThread("ReceiveThread", Priority::AboveNormal, ReceiveThread);
  writeThread = StartThread("WriteThread", Priority::Normal, WriteThread);
  // Nobody is to wait for a thread that could not be started.
  if (!receiveThread) recvDone->Set();
  if (!writeThread) writeDone->Set();
  if (HasMail()) StartMail();
  if (rules.watchesFromTheStart)
    reportWatchThread = StartThread("ReportWatch", Priority::AboveNormal, ReportWatchThread);
}

// Without it the transfer works all the same.
void ReceiverSession::StartMail() {
  mailWake = machine.threads.MakeEvent();
  if (!mailWake || !sockets.OpenMail()) return;
  mail->SetWake(mailWake);
  mailThread = StartThread("MailThread", Priority::Normal, MailThread);
}

void ReceiverSession::Knock(uint32_t otherSender) {
  if (!HasMail()) return;
  if (const auto knock = mail->Knock(otherSender)) SendMail(*knock);
}

void ReceiverSession::StartReportWatch() {
  const std::scoped_lock locked(threadsLock);
  if (closed || reportWatchThread) return;
  reportWatchThread = StartThread("ReportWatch", Priority::AboveNormal, ReportWatchThread);
}

std::shared_ptr<Thread> ReceiverSession::StartThread(const char* name, Priority priority, ThreadBody body) {
  ++liveThreads;
  auto thread = machine.threads.Start(name, priority, [self = shared_from_this(), body] {
    body(*self);
    self->EndThread();
  });
  if (!thread) EndThread();
  return thread;
}

void ReceiverSession::EndThread() {
  if (--liveThreads == 0 && tornDown) CloseLeftovers();
}

void ReceiverSession::CloseAll() {
  if (closed.exchange(true)) return;
  machine.debug.Write("-------------CloseAll");
  if (HasMail()) SayLeaving();
  stop.SetAborted();
  wake->Set();
  {
    const std::scoped_lock locked(threadsLock);
    if (mailWake) mailWake->Set();
  }
  announced->Set();
  machine.debug.Write("-------------Before WaitResult");
  WaitForThreads();
  machine.debug.Write("-------------After WaitResult");
  if (!sockets.LeaveDataGroup()) machine.debug.Write("\n@@-----setsockopt err in closeall\n");
  sockets.CloseData();
  machine.clock.Sleep(10ms);
  if (holdsNetwork) machine.network.Stop();
  // A writer that the wait was too short for closes its file itself, at the latest as the last thread.
  if (writeDone->IsSet()) CloseOutputFile();
  DestoryAll();
  tornDown = true;
  if (liveThreads == 0) CloseLeftovers();
}

// In the middle of a transfer: its sender need not wait for an answer that does not come.
void ReceiverSession::SayLeaving() {
  if (!CurrentTransfer()->IsAnnounced() || ended || stopSeen || host.FirstFailure() != 0) return;
  const bool isLeaving = record.With([&](BlockRecord&) { return repair->IsLeaving(); });
  if (!isLeaving) replies.SendFinish(QUORL_STATUS_LEFT, rules.failureCopies);
}

// By the old rules for both ends, whether the threads were started or not; else for the threads that there are.
void ReceiverSession::WaitForThreads() {
  const Moment deadline = machine.clock.Now() + TEARDOWN_LIMIT;
  const auto left = [&] { return std::max(Duration::zero(), deadline - machine.clock.Now()); };
  std::array<std::shared_ptr<Thread>, 4> threads;
  {
    const std::scoped_lock locked(threadsLock);
    threads = {receiveThread, writeThread, reportWatchThread, mailThread};
  }
  if (rules.wakesToEnd) {
    for (const auto& thread : threads)
      if (thread) thread->WaitForEnd(left());
    return;
  }
  if (!threads[0] || !threads[0]->IsCurrent()) recvDone->Wait(left());
  if (!threads[1] || !threads[1]->IsCurrent()) writeDone->Wait(left());
}

void ReceiverSession::DestoryAll() {
  machine.debug.Write("-------------DestoryAll");
  record.With([&](BlockRecord&) { repair->Forget(); });
  queue.Clear();
}

void ReceiverSession::CloseOutputFile() {
  if (!writer.HasFile()) return;
  machine.debug.Write(writer.FileName() + "\n");
  writer.CloseFile();
}

// What threads may still have used after CloseAll, once there are none.
void ReceiverSession::CloseLeftovers() {
  if (leftoversClosed.exchange(true)) return;
  CloseOutputFile();
  sockets.CloseReport();
  sockets.CloseMail();
}

void ReceiverSession::ClientSendFinish(uint32_t status, int copies) {
  if (!replies.SendFinish(static_cast<uint16_t>(status), copies)) CloseAll();
}

void ReceiverSession::GiveUp(uint32_t status) {
  const auto generation = [&] { return record.With([](BlockRecord& blocks) { return blocks.Generation(); }); };
  const uint32_t ofTransfer = generation();
  ClientSendFinish(status, rules.failureCopies);
  machine.clock.Sleep(100ms);
  // The transfer may have come to its end meanwhile, or another have begun.
  if (generation() != ofTransfer || ended) return;
  host.PostStatus(status);
  machine.clock.Sleep(10ms);
}

}  // namespace quorl
