// The receive loop: the socket, the announcement of a transfer, and its stream of blocks. Blocks go to the writer's
// queue and gaps to LostThread, so that the loop is back at its socket at once. The repair is in receive_repair.cpp.
#include "receiver/receive_loop.h"

#include <quorl/quorl.h>

#include "files/disk_space.h"
#include "files/names.h"
#include "files/target_dir.h"
#include "receiver/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

// An announcement is sent three times; what comes later is another transfer of the same shape.
constexpr Duration COPIES_WITHIN = 500ms;

// After a receive that failed, so that a broken socket does not take the processor.
constexpr Duration AFTER_FAILED_RECEIVE = 10ms;

}  // namespace

void ReceiveThread(ReceiverSession& session) {
  const auto loop = std::make_unique<ReceiveLoop>(session);
  loop->Run();
  session.recvDone->Set();
}

void ReceiveLoop::Run() {
  while (!session.stop.IsStopped() && ReceiveOne() == Next::Continue) {
  }
}

ReceiveLoop::Next ReceiveLoop::ReceiveOne() {
  const Received received = Receive();
  switch (received.outcome) {
    case Received::Outcome::Datagram: break;
    case Received::Outcome::TimedOut:
      if (!session.sender.IsLost()) {
        ClientSendAck();
      } else {
        requestTimer.Stop();
      }
      return Next::Continue;
    case Received::Outcome::Failed: session.stop.Stopped().Wait(AFTER_FAILED_RECEIVE); return Next::Continue;
    case Received::Outcome::Interrupted: return Next::Continue;
    case Received::Outcome::Closed: return Next::End;
  }
  const auto datagram = std::span<const uint8_t>(buffer).first(received.length);
  if (!HasMagic(datagram)) return Handle(Reject::WrongMagic);
  if (!session.sender.Accepts(received.from.address)) return Drop(Count::DroppedStranger);
  const FromSender message = ParseFromSender(datagram);
  const bool isBlock = std::holds_alternative<Data>(message) || std::holds_alternative<Resend>(message);
  if (isBlock && !session.sender.AcceptsBlocks(received.from.address)) return Drop(Count::DroppedStranger);
  session.replies.SetSender(received.from.address);
  return Dispatch(message);
}

// Classic waits as long as it takes; only the closing of the socket ends that. A robust master asks again in time.
Received ReceiveLoop::Receive() {
  if (session.profile == Profile::Classic) return session.sockets.ReceiveData(buffer, FOREVER, nullptr);
  Duration limit = FOREVER;
  if (const auto due = requestTimer.Due()) limit = std::max(Duration::zero(), *due - session.machine.clock.Now());
  return session.sockets.ReceiveData(buffer, limit, &session.stop.Stopped());
}

ReceiveLoop::Next ReceiveLoop::Dispatch(const FromSender& message) {
  return std::visit([this](const auto& command) { return Handle(command); }, message);
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
  if (session.replies.SendClient()) return Next::Continue;
  session.stop.SetAborted();
  session.host.PostStatus(QUORL_STATUS_SEND_FAILED);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const Task& task) {
  if (IsCopyOfAccepted(task)) return Next::Continue;
  session.DestoryAll();
  session.SetAnswerPending();
  session.stopSeen = false;
  session.SetCurrentName("");
  const bool watchHasEnded = session.sender.TakeLost();
  position = SequencePosition();
  requestTimer.Stop();
  isMaster = 0;
  takesPart = true;
  emptyDirs = 0;
  std::string targetDir = TargetDirFor(task);
  const uint32_t generation = session.missing.Begin(task.fileCount, task.totalBlocks);
  // Only now, when the writer tells nothing of the earlier transfer any more.
  session.host.Begin();
  transfer = std::make_shared<const AnnouncedTransfer>(AnnouncedTransfer{generation, task, std::move(targetDir)});
  session.SetTransfer(transfer);

  const uint64_t need = uint64_t{task.totalBlocks} * BLOCK_SIZE;
  const uint32_t check = CheckDiskSpace(session.machine, transfer->targetDir, static_cast<uint32_t>(need), need);
  if (check != 1) {
    session.GiveUp(check == 0 ? uint32_t{QUORL_STATUS_DISK_FULL} : check);
    return Next::End;
  }
  // Only now: who removes it from under a transfer has removed the transfer.
  session.machine.files.MakeTarget(transfer->targetDir);
  if (session.profile == Profile::Robust) session.sender.Bind(session.replies.Sender());
  // The watch ends with the loss of a sender. A robust receiver does not wait without one for the next.
  if (firstAnnouncement) {
    session.StartTransferThreads();
  } else if (watchHasEnded && session.profile == Profile::Robust) {
    session.StartReportWatch();
  }
  firstAnnouncement = false;
  session.host.PostTaskInfo(task.fileCount, task.totalBlocks);
  acceptedAt = session.machine.clock.Now();
  return Next::Continue;
}

bool ReceiveLoop::IsCopyOfAccepted(const Task& task) const {
  const Task& accepted = transfer->task;
  return acceptedAt && session.machine.clock.Now() - *acceptedAt <= COPIES_WITHIN &&
         task.totalBlocks == accepted.totalBlocks && task.fileCount == accepted.fileCount &&
         task.targetFolder == accepted.targetFolder && task.targetPath == accepted.targetPath;
}

std::string ReceiveLoop::TargetDirFor(const Task& task) {
  const std::string root = session.ReceiveRoot();
  if (!root.empty()) return root;
  return ResolveTargetDir(session.machine, task.targetFolder, Convert(task.targetPath), transfer->targetDir);
}

ReceiveLoop::Next ReceiveLoop::Handle(const Data& data) {
  if (!BelongsToTransfer(data.head)) return Next::Continue;
  // A block that finds no room counts as not arrived: the position stays, so that its place shows as a gap.
  if (!HasRoomFor(data.bytes)) return Next::Continue;
  Queue(data.head, data.bytes, true);
  const BlockHead& head = data.head;
  if (const auto gap = position.MoveTo(head.file, head.block, head.lastBlock)) session.missing.AddGap(*gap);
  return Next::Continue;
}

// What was announced decides. Before an announcement a classic receiver takes everything.
bool ReceiveLoop::BelongsToTransfer(const BlockHead& head) {
  if (!takesPart) return false;
  if (!transfer->IsAnnounced()) {
    session.sawUnannounced = true;
    if (StaysUntouched()) Drop(Count::DroppedUnannounced);
    return !StaysUntouched();
  }
  switch (session.missing.Admit(head)) {
    case Admission::Admitted: return true;
    case Admission::BeyondFileCount: Drop(Count::DroppedBeyondFileCount); break;
    case Admission::BeyondTotal: Drop(Count::DroppedBeyondTotal); break;
    case Admission::SecondShape: Drop(Count::DroppedSecondShape); break;
  }
  return false;
}

bool ReceiveLoop::HasRoomFor(std::span<const uint8_t> bytes) {
  const bool hasRoom = session.queue.HasRoomFor(bytes.size());
  if (!hasRoom) Drop(Count::DroppedQueueFull);
  return hasRoom;
}

bool ReceiveLoop::NamesAnnouncedFile(const BlockHead& head) const {
  return takesPart && head.file >= 1 && head.file <= transfer->task.fileCount;
}

// Without an announcement there is no target directory. A receiver with a root of its own, or a robust one, then
// writes nothing at all.
bool ReceiveLoop::StaysUntouched() const {
  return !transfer->IsAnnounced() && (session.profile == Profile::Robust || !session.ReceiveRoot().empty());
}

void ReceiveLoop::Queue(const BlockHead& head, std::span<const uint8_t> bytes, bool firstSending) {
  const size_t waiting = session.queue.Push({transfer, head, firstSending, {bytes.begin(), bytes.end()}});
  session.counters.Raise(Count::QueueHighWater, waiting);
  const std::string name = Convert(head.name);
  session.SetCurrentName(name);
  session.host.PostFileName(name);
}

ReceiveLoop::Next ReceiveLoop::Handle(const Stop&) {
  session.stopSeen = true;
  // A sender that starts once more at once announces a new transfer, equal as it may be.
  acceptedAt.reset();
  session.sender.Release();
  isMaster = 0;
  requestTimer.Stop();
  session.host.PostStatus(QUORL_STATUS_DONE);
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const EmptyDir& emptyDir) {
  if (StaysUntouched() || !takesPart) return Drop(Count::DroppedUnannounced);
  for (const NameField& field : emptyDir.names) {
    // One datagram holds all that a sender announces; more would fill the disk for nothing.
    if (++emptyDirs > EMPTY_DIR_LIMIT) return Drop(Count::RefusedDirectories);
    const MappedPath directory = MapDirectoryPath(transfer->targetDir, Convert(field));
    if (directory.status == QUORL_STATUS_PATH_TOO_LONG) {
      session.ClientSendFinish(QUORL_STATUS_PATH_TOO_LONG);
      session.host.PostStatus(QUORL_STATUS_PATH_TOO_LONG);
      return Next::End;
    }
    if (directory.status == 0) {
      CreateDirChain(session.machine, directory.path);
    } else {
      Drop(Count::RefusedDirectories);
    }
  }
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const ServerOs& serverOs) {
  session.senderNtPlatform = serverOs.platform != 0;
  return Next::Continue;
}

ReceiveLoop::Next ReceiveLoop::Handle(const AutoOpenName& autoOpenName) {
  session.SetAutoOpenName(Convert(autoOpenName.name));
  return Next::Continue;
}

std::string ReceiveLoop::Convert(const NameField& field) const {
  return ConvertName(session.machine, field, session.senderNtPlatform);
}

}  // namespace quorl
