// The receiver's life: set-up, threads, teardown. The host's thread brings a session up and tears it down; a receiver
// thread that cannot reach its sender tears it down as well.
#include "receiver/receiver_session.h"

#include <algorithm>
#include <array>
#include <utility>

#include "receiver/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration TEARDOWN_LIMIT = 5000ms;
// Less than the 500 ms after which a sender goes on without an answer.
constexpr Duration SETTLE_LIMIT = 400ms;
constexpr Duration SETTLE_POLL = 2ms;

}  // namespace

ReceiverSession::ReceiverSession(const Machine& machine, QuorlWindow hostWindow, const RoomAddress& room,
                                 Profile profile, const std::string& receiveRoot)
    : machine(machine),
      profile(profile),
      sockets(this->machine, room, counters),
      replies(this->machine, sockets, profile, counters),
      host(machine.windows, hostWindow, counters),
      missing(counters),
      writer(*this),
      receiveRoot(receiveRoot) {}

ReceiverSession::~ReceiverSession() {
  // A file that cannot be written now starts no teardown any more.
  closed = true;
  CloseLeftovers();
}

bool ReceiverSession::PrepareEvents() {
  recvDone = machine.threads.MakeEvent();
  writeDone = machine.threads.MakeEvent();
  lostDone = machine.threads.MakeEvent();
  return recvDone && writeDone && lostDone && stop.Prepare(machine.threads);
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
}

void ReceiverSession::StartTransferThreads() {
  {
    const std::scoped_lock locked(threadsLock);
    lostThread = StartThread("LostThread", Priority::Normal, LostThread);
    if (!lostThread) {
      missing.EndExpansion();
      lostDone->Set();
    }
  }
  StartReportWatch();
}

void ReceiverSession::StartReportWatch() {
  const std::scoped_lock locked(threadsLock);
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
  stop.SetAborted();
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

// Classic waits for both ends, whether the threads were started or not; robust for the threads that there are.
void ReceiverSession::WaitForThreads() {
  const Moment deadline = machine.clock.Now() + TEARDOWN_LIMIT;
  const auto left = [&] { return std::max(Duration::zero(), deadline - machine.clock.Now()); };
  std::array<std::shared_ptr<Thread>, 4> threads;
  {
    const std::scoped_lock locked(threadsLock);
    threads = {receiveThread, writeThread, lostThread, reportWatchThread};
  }
  if (profile == Profile::Robust) {
    for (const auto& thread : threads)
      if (thread) thread->WaitForEnd(left());
    return;
  }
  if (!threads[0] || !threads[0]->IsCurrent()) recvDone->Wait(left());
  if (!threads[1] || !threads[1]->IsCurrent()) writeDone->Wait(left());
}

void ReceiverSession::DestoryAll() {
  machine.debug.Write("-------------DestoryAll");
  missing.Clear();
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
}

void ReceiverSession::ClientSendFinish(uint32_t status) {
  if (!replies.SendFinish(static_cast<uint16_t>(status))) CloseAll();
}

void ReceiverSession::GiveUp(uint32_t status) {
  ClientSendFinish(status);
  machine.clock.Sleep(100ms);
  // The transfer may have come to its good end meanwhile.
  if (ended && missing.IsWhole()) return;
  host.PostStatus(status);
  machine.clock.Sleep(10ms);
}

bool ReceiverSession::LetWriterSettle() {
  const uint64_t request = queue.RequestSettle();
  const Moment deadline = machine.clock.Now() + SETTLE_LIMIT;
  // Without a writer nothing more reaches the disk.
  const auto isSettled = [&] { return queue.IsSettled(request) || writeDone->IsSet(); };
  while (!isSettled() && !stop.IsAborted() && machine.clock.Now() < deadline) machine.clock.Sleep(SETTLE_POLL);
  return isSettled();
}

bool ReceiverSession::IsAnswerPending() {
  const std::scoped_lock locked(answerLock);
  return answerPending;
}

void ReceiverSession::SetAnswerPending() {
  const std::scoped_lock locked(answerLock);
  answerPending = true;
}

bool ReceiverSession::TakeAnswerPending() {
  const std::scoped_lock locked(answerLock);
  return std::exchange(answerPending, false);
}

}  // namespace quorl
