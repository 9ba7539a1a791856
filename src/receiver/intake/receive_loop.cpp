// The receive loop: the socket, the announcement of a transfer, and what has to be done about each datagram. Blocks go
// to the writer's queue, so that the loop is back at its socket at once. What is missing and what is answered is
// decided by the rules of the repair, whose steps stand at the end of this file.
#include "receiver/intake/receive_loop.h"

#include <quorl/quorl.h>

#include <algorithm>
#include <utility>

#include "files/disk_space.h"
#include "files/names.h"
#include "files/target_dir.h"
#include "receiver/session/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

// An announcement is sent three times; what comes later is another transfer of the same shape.
constexpr Duration COPIES_WITHIN = 500ms;

// After a receive that failed, so that a broken socket does not take the processor.
constexpr Duration AFTER_FAILED_RECEIVE = 10ms;

// Datagrams that come closer on each other than that are a fast stream. It may gather for so long, but for no more than
// one receive takes, which any socket's buffer holds; when that is too short for a pause there is none.
constexpr Duration FAST_STREAM = 150us;
constexpr Duration LONGEST_GATHERING = 500us;
constexpr Duration SHORTEST_GATHERING = 100us;

constexpr Duration PACE_PERIOD = 1ms;

}  // namespace

void ReceiveThread(ReceiverSession& session) {
  const auto loop = std::make_unique<ReceiveLoop>(session);
  loop->Run();
  session.recvDone->Set();
}

void ReceiveLoop::Run() {
  while (!IsOver() && ReceiveSome() == Next::Continue) {
  }
}

// A receiver that has its last word still to say says it also while it is torn down.
bool ReceiveLoop::IsOver() {
  if (!session.stop.IsStopped()) return false;
  const bool aborted = session.stop.IsAborted();
  return session.record.With(
      [&](BlockRecord&) { return !session.repair->IsLeaving() || (aborted && !session.repair->Due()); });
}

bool ReceiveLoop::IsLeaving() {
  return session.record.With([&](BlockRecord&) { return session.repair->IsLeaving(); });
}

ReceiveLoop::Next ReceiveLoop::ReceiveSome() {
  Answer();
  const Received received = Receive();
  switch (received.outcome) {
    case Received::Outcome::Datagram: break;
    case Received::Outcome::TimedOut:
      return Decide([&](RepairSteps& steps) { session.repair->Pass(session.machine.clock.Now(), steps); });
    case Received::Outcome::Failed: session.machine.clock.Sleep(AFTER_FAILED_RECEIVE); return Next::Continue;
    case Received::Outcome::Interrupted: return LookAround();
    case Received::Outcome::Closed: return Next::End;
  }
  for (const DatagramBatch::Item& datagram : batch.Items())
    if (IsOver() || TakeDatagram(datagram) == Next::End) return Next::End;
  LetGather();
  return Next::Continue;
}

// A fast stream is taken in handfuls: to wake for each datagram costs more than to handle it.
void ReceiveLoop::LetGather() {
  const Moment now = session.machine.clock.Now();
  counted += batch.Items().size();
  if (const Duration passed = now - countedFrom; passed >= PACE_PERIOD) {
    betweenDatagrams = passed / std::exchange(counted, 0);
    countedFrom = now;
  }
  if (betweenDatagrams >= FAST_STREAM || batch.IsFull()) return;
  const Duration gathering = std::min<Duration>(betweenDatagrams * DATAGRAMS_AT_ONCE, LONGEST_GATHERING);
  if (gathering < SHORTEST_GATHERING) return;
  if (session.record.With([&](BlockRecord&) { return session.repair->IsStreaming(); }))
    session.machine.clock.Sleep(gathering);
}

ReceiveLoop::Next ReceiveLoop::TakeDatagram(const DatagramBatch::Item& datagram) {
  const uint32_t from = datagram.from.address;
  if (!HasMagic(datagram.bytes)) return Handle(Reject::WrongMagic);
  if (!session.sender.Accepts(from)) return Drop(Count::DroppedStranger);
  const FromSender message = ParseFromSender(datagram.bytes);
  const bool isBlock = std::holds_alternative<Data>(message) || std::holds_alternative<Resend>(message) ||
                       std::holds_alternative<SymbolDatagram>(message);
  if (isBlock && !session.sender.AcceptsBlocks(from)) return Drop(Count::DroppedStranger);
  session.replies.SetSender(from);
  session.heardSender = true;
  if (IsLeaving()) return HandleWhileLeaving(message);
  return std::visit([this](const auto& command) { return Handle(command); }, message);
}

// The last word has been said: to a sender that has not heard it, it is said again.
ReceiveLoop::Next ReceiveLoop::HandleWhileLeaving(const FromSender& message) {
  // The sender is at its next room, and this receiver takes no part in that unless it begins anew.
  if (std::holds_alternative<Collect>(message)) return Next::End;
  if (const auto* word = std::get_if<Word>(&message)) return Handle(*word);
  const auto* master = std::get_if<Master>(&message);
  return master ? Handle(*master) : Next::Continue;
}

// By the old rules only a datagram or the closing of the socket ends the wait.
Received ReceiveLoop::Receive() {
  if (!session.rules.wakesToEnd) return session.sockets.ReceiveData(batch, FOREVER, nullptr);
  const auto due = Due();
  const Duration left = due ? *due - session.machine.clock.Now() : FOREVER;
  // What is due goes before what waits in the socket, or a flood would hold it up.
  if (left <= Duration::zero()) return {.outcome = Received::Outcome::TimedOut};
  return session.sockets.ReceiveData(batch, left, session.wake.get());
}

// The writer has news, the sender has been lost, or the receiver is torn down.
ReceiveLoop::Next ReceiveLoop::LookAround() {
  session.wake->Reset();
  const bool settled = settleRequest && session.queue.IsSettled(*settleRequest);
  if (settled) settleRequest.reset();
  return Decide([&](RepairSteps& steps) {
    const Moment now = session.machine.clock.Now();
    if (session.sender.TakeLossNews()) session.repair->StandDown(now, steps);
    if (settled) session.repair->TakeSettled(now, steps);
    session.repair->Pass(now, steps);
  });
}

ReceiveLoop::Next ReceiveLoop::Handle(Reject reason) {
  session.counters.AddRejected(reason);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Drop(Count why) {
  session.counters.Add(why);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Collect&) {
  answeredTo = session.replies.Sender();
  if (session.replies.SendClient()) return Next::Continue;
  session.stop.SetAborted();
  session.host.PostStatus(QUORL_STATUS_SEND_FAILED);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Task& task) {
  if (IsCopyOfAccepted(task)) return Next::Continue;
  if (task.fileCount > task.totalBlocks && !session.rules.takesMoreFilesThanBlocks)
    return Drop(Count::DroppedMoreFilesThanBlocks);
  session.DestoryAll();
  session.stopSeen = false;
  session.SetCurrentName("");
  shownField = NameField();
  session.sender.TakeLost();
  session.otherRoom.Forget();
  emptyDirs = 0;
  settleRequest.reset();
  symbols.reset();
  answer.Forget();
  std::string targetDir = TargetDirFor(task);
  const BlockRanges held = session.TakeHeld(session.replies.Sender());
  const uint32_t generation = session.record.With([&](BlockRecord& record) {
    record.Begin(task.fileCount, task.totalBlocks);
    record.Hold(held);
    session.repair->Begin(session.machine.clock.Now());
    return record.Generation();
  });
  // Only now, when the writer tells nothing of the earlier transfer any more.
  session.host.Begin();
  transfer = std::make_shared<const AnnouncedTransfer>(
      AnnouncedTransfer{generation, task, std::move(targetDir), session.TakeStoreListener()});
  session.SetTransfer(transfer);
  // The collection was over before this receiver listened; there is a row for it still.
  if (session.HasMail() && answeredTo != session.replies.Sender()) session.replies.SendClient();
  if (!Fits(task)) return Next::End;
  // Only now: a target that is removed from under a transfer takes the transfer with it.
  if (session.rules.makesTargetOnce) session.machine.files.MakeTarget(transfer->targetDir);
  if (session.rules.bindsSender) session.sender.Bind(session.replies.Sender());
  session.StartReportWatch();
  session.announced->Set();
  session.host.PostTaskInfo(task.fileCount, task.totalBlocks);
  acceptedAt = session.machine.clock.Now();
  return Next::Continue;
}

bool ReceiveLoop::IsCopyOfAccepted(const Task& task) const {
  return acceptedAt && session.machine.clock.Now() - *acceptedAt <= COPIES_WITHIN && task == transfer->task;
}

std::string ReceiveLoop::TargetDirFor(const Task& task) {
  const std::string root = session.ReceiveRoot();
  if (!root.empty()) return root;
  return ResolveTargetDir(session.machine, task.targetFolder, Convert(task.targetPath), transfer->targetDir);
}

// Whether the disk takes the transfer; sender and host have been told otherwise.
bool ReceiveLoop::Fits(const Task& task) {
  const uint64_t held = session.record.With([](BlockRecord& record) { return record.StoredCount(); });
  const uint64_t trueNeed = (task.totalBlocks - held) * BLOCK_SIZE;
  const auto need = static_cast<uint32_t>(trueNeed);
  uint32_t check = CheckDiskSpace(session.machine, transfer->targetDir, need,
                                  session.rules.comparesTrueSize ? trueNeed : uint64_t{need});
  const auto names = session.rules.looksForNames ? session.machine.shell.FreeNames(transfer->targetDir) : std::nullopt;
  if (names && *names < task.fileCount) check = 0;
  if (check == 1) return true;
  session.GiveUp(check == 0 ? uint32_t{QUORL_STATUS_DISK_FULL} : check);
  return false;
}

Count ReceiveLoop::CountOf(Admission refusal) {
  switch (refusal) {
    case Admission::BeyondFileCount: return Count::DroppedBeyondFileCount;
    case Admission::BeyondTotal: return Count::DroppedBeyondTotal;
    case Admission::BeyondLast: return Count::DroppedBlockBeyondLast;
    case Admission::SecondShape: return Count::DroppedSecondShape;
    case Admission::QueueFull: return Count::DroppedQueueFull;
    default: return Count::DroppedUnannounced;
  }
}

ReceiveLoop::Next ReceiveLoop::Handle(const Data& data) {
  return TakeBlock({data.head, data.bytes, true});
}

ReceiveLoop::Next ReceiveLoop::Handle(const Resend& resend) {
  return TakeBlock({resend.head, resend.bytes, false});
}

ReceiveLoop::Next ReceiveLoop::TakeBlock(const Arrived& arrived) {
  if (IsUnannounced()) {
    session.otherRoom.Hear(session.replies.Sender(), session.machine.clock.Now());
    session.Knock(session.replies.Sender());
  }
  if (StaysUntouched()) return Drop(Count::DroppedUnannounced);
  const bool hasRoom = session.queue.HasRoomFor(arrived.bytes.size());
  const Next next = Decide(
      [&](RepairSteps& steps) {
        BlockRepair& repair = *session.repair;
        const Moment now = session.machine.clock.Now();
        const Admission admission = arrived.firstSending ? repair.TakeData(arrived.head, hasRoom, now, steps)
                                                         : repair.TakeResend(arrived.head, hasRoom, now, steps);
        if (admission != Admission::Admitted) session.counters.Add(CountOf(admission));
      },
      &arrived);
  // Written all the same: the file is a mixture now.
  if (IsUnannounced())
    session.record.With([&](BlockRecord& record) { record.Spoil(transfer->generation, arrived.head.file); });
  return next;
}

// What comes after the transfer was stopped is of another one, whose announcement this receiver has missed.
bool ReceiveLoop::IsUnannounced() const {
  return !transfer->IsAnnounced() || session.stopSeen;
}

// Without an announcement there is no target directory. A receiver with a root of its own then writes nothing at all.
bool ReceiveLoop::StaysUntouched() const {
  return IsUnannounced() && (!session.rules.takesUnannounced || !session.ReceiveRoot().empty());
}

ReceiveLoop::Next ReceiveLoop::Handle(const Master& master) {
  return Decide([&](RepairSteps& steps) { session.repair->TakeMaster(master, session.machine.clock.Now(), steps); });
}

ReceiveLoop::Next ReceiveLoop::Handle(const Release& release) {
  return Decide([&](RepairSteps& steps) {
    if (!session.repair->TakeRelease(release, session.machine.clock.Now(), steps))
      session.counters.Add(Count::DroppedUnannounced);
  });
}

ReceiveLoop::Next ReceiveLoop::Handle(const Finish&) {
  const Next next = Decide([&](RepairSteps& steps) { session.repair->TakeFinish(session.machine.clock.Now(), steps); });
  if (next == Next::End) session.machine.debug.Write("\n-------------Receive");
  return next;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Stop&) {
  session.stopSeen = true;
  // A sender that starts once more at once announces a new transfer, equal as it may be.
  acceptedAt.reset();
  if (symbols) stoppedTransfer = symbols->Transfer();
  symbols.reset();
  answer.Forget();
  session.sender.Release();
  session.host.PostStatus(QUORL_STATUS_DONE);
  return Decide([&](RepairSteps& steps) { session.repair->StandDown(session.machine.clock.Now(), steps); });
}

ReceiveLoop::Next ReceiveLoop::Handle(const EmptyDir& emptyDir) {
  if (StaysUntouched()) return Drop(Count::DroppedUnannounced);
  for (const NameField& field : emptyDir.names) {
    // One datagram holds all that a sender announces; more would fill the disk for nothing.
    if (++emptyDirs > EMPTY_DIR_LIMIT) return Drop(Count::RefusedDirectories);
    if (MakeDirectory(field) == Next::End) return Next::End;
  }
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::MakeDirectory(const NameField& name) {
  const MappedPath directory = MapDirectoryPath(transfer->targetDir, Convert(name));
  if (directory.status == QUORL_STATUS_PATH_TOO_LONG) {
    session.ClientSendFinish(QUORL_STATUS_PATH_TOO_LONG, session.rules.failureCopies);
    session.host.PostStatus(QUORL_STATUS_PATH_TOO_LONG);
    return Next::End;
  }
  if (directory.status != 0) return Drop(Count::RefusedDirectories);
  if (!session.rules.makesTargetOnce) session.machine.files.MakeTarget(transfer->targetDir);
  CreateDirChain(session.machine, directory.path);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const ServerOs& serverOs) {
  session.senderNtPlatform = serverOs.platform != 0;
  shownField = NameField();
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const AutoOpenName& autoOpenName) {
  session.SetAutoOpenName(Convert(autoOpenName.name));
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Offer& offer) {
  if (!session.HasMail()) return Handle(Reject::UnknownCommand);
  session.SendMail(session.mail->TakeOffer(session.replies.Sender(), offer));
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Word& word) {
  if (!session.HasMail()) return Handle(Reject::UnknownCommand);
  session.mail->TakeWord(session.replies.Sender(), word);
  return Next::Continue;
}

std::string ReceiveLoop::Convert(const NameField& field) const {
  return ConvertName(session.machine, field, session.senderNtPlatform);
}

// ---- the steps of the repair, carried out in their order and outside the record's lock ----

template <typename Decision>
ReceiveLoop::Next ReceiveLoop::Decide(Decision decision, const Arrived* arrived) {
  RepairSteps steps;
  session.record.With([&](BlockRecord&) { decision(steps); });
  return CarryOut(steps, arrived);
}

ReceiveLoop::Next ReceiveLoop::CarryOut(const RepairSteps& steps, const Arrived* arrived) {
  for (const RepairStep& step : steps)
    if (std::visit([&](const auto& which) { return Do(which, arrived); }, step) == Next::End) return Next::End;
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Do(const AckStep& step, const Arrived*) {
  session.machine.debug.Write("\nQuorl-----Client Send ACK !\n");
  if (step.send) session.replies.SendAck(step.wanted);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Do(const AnswerStep& step, const Arrived*) {
  session.replies.SendAnswer(step.missing);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Do(const FinishStep& step, const Arrived*) {
  session.ClientSendFinish(step.status, 1);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Do(const StoreStep&, const Arrived* arrived) {
  const size_t size = arrived->bytes.size();
  const Slab slab = std::make_shared_for_overwrite<uint8_t[]>(size);
  std::copy(arrived->bytes.begin(), arrived->bytes.end(), slab.get());
  Store({transfer, arrived->head, arrived->firstSending, 1, slab, {slab.get(), size}});
  return Next::Continue;
}

void ReceiveLoop::Store(ReceivedBlocks blocks) {
  const bool isNews = shownField != blocks.head.name;
  if (isNews) shownField = blocks.head.name;
  session.counters.Raise(Count::QueueHighWater, session.queue.Push(std::move(blocks)));
  if (isNews) {
    shownName = Convert(shownField);
    session.SetCurrentName(shownName);
  }
  if (isNews || session.rules.tellsNameOfEachBlock) session.host.PostFileName(shownName);
}

// ProcessLost, up to what it finds on the disk.
ReceiveLoop::Next ReceiveLoop::Do(const LookStep&, const Arrived* arrived) {
  for (const char* line : {"\n", "Process Lost", "\n"}) session.machine.debug.Write(line);
  const std::string converted = Convert(arrived->head.name);
  const std::string name = converted.starts_with('\\') ? converted : "\\" + converted;
  const MappedPath mapped = MapDirectoryPath(transfer->targetDir, name);
  if (mapped.status != QUORL_STATUS_FILE_UNWRITABLE) {
    if (!session.rules.makesTargetOnce) session.machine.files.MakeTarget(transfer->targetDir);
    CreateParentDirChain(session.machine, transfer->targetDir, name);
  }
  const bool exists = mapped.status == 0 && session.machine.files.CanOpenOutput(mapped.path.base, mapped.path.name);
  return Decide(
      [&](RepairSteps& steps) { session.repair->TakeLook(arrived->head, exists, session.machine.clock.Now(), steps); },
      arrived);
}

ReceiveLoop::Next ReceiveLoop::Do(const SettleStep&, const Arrived*) {
  settleRequest = session.queue.RequestSettle();
  return Next::Continue;
}

// Never shorter than stated, but for the teardown.
ReceiveLoop::Next ReceiveLoop::Do(const PauseStep& step, const Arrived*) {
  Clock& clock = session.machine.clock;
  const Moment end = clock.Now() + step.pause;
  while (clock.Now() < end && !session.stop.IsAborted())
    if (session.wake->Wait(end - clock.Now())) session.wake->Reset();
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Do(const FinishedStep&, const Arrived*) {
  session.stop.SetFinished();
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Do(const GiveUpStep& step, const Arrived*) {
  session.GiveUp(step.status);
  return Next::Continue;
}

}  // namespace quorl
