// The writer: takes the blocks that the receive loop queued, in the order in which they came, and puts each into its
// file under the target directory. It alone knows what has reached the disk, and tells the record of stored blocks; a
// file that cannot be opened, written or closed is marked there as failed, so that its transfer never counts as
// complete.
#include "receiver/writer.h"

#include <quorl/quorl.h>

#include "receiver/receiver_session.h"
#include "receiver/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration QUEUE_POLL = 2ms;

std::string ToText(const LocalPath& path) {
  std::string text = path.base;
  for (const std::string& component : path.name.Components()) text.append("\\").append(component);
  return text;
}

uint32_t StatusOf(WriteOutcome outcome) {
  return outcome == WriteOutcome::DiskFull ? QUORL_STATUS_DISK_FULL : QUORL_STATUS_FILE_UNWRITABLE;
}

/// Handles the queue until the transfer is over. False when the receiver is torn down.
bool WriteQueue(ReceiverSession& session) {
  for (bool over = false;;) {
    if (session.stop.IsAborted()) return false;
    if (const std::optional<ReceivedBlock> block = session.queue.Pop()) {
      session.writer.WriteBlock(*block);
    } else if (const std::optional<uint64_t> request = session.queue.OpenSettleRequest()) {
      session.writer.CloseFile();
      session.queue.ConfirmSettled(*request);
    } else if (over) {
      return true;
    } else if (session.stop.IsFinished()) {
      // Blocks queued before the end was seen still count.
      over = true;
    } else {
      session.machine.clock.Sleep(QUEUE_POLL);
    }
  }
}

void TellEnd(ReceiverSession& session) {
  const TransferPtr transfer = session.CurrentTransfer();
  const bool complete = transfer->IsAnnounced() && session.missing.IsWhole();
  session.ended = true;
  if (!complete) {
    // What the host was told before, say of a file that failed, did not end the transfer; this does.
    session.host.PostStatus(QUORL_STATUS_TIMED_OUT);
  } else if (session.host.HasWindow()) {
    const std::string name = session.AutoOpenName();
    session.host.TellComplete(name.empty() ? name : transfer->targetDir + name);
  }
}

}  // namespace

void WriteThread(ReceiverSession& session) {
  const bool transferOver = WriteQueue(session);
  if (transferOver) {
    session.writer.CloseFile();
    TellEnd(session);
  }
  session.writeDone->Set();
  if (transferOver) session.machine.debug.Write("\nQuorl----transmission over---------WriteThread\n");
}

void Writer::WriteBlock(const ReceivedBlock& block) {
  const BlockHead& head = block.head;
  if (block.transfer != transfer) {
    CloseFile();
    transfer = block.transfer;
    places.clear();
  }
  if (session.profile == Profile::Robust && session.missing.IsFailed(transfer->generation, head.file)) return;
  if (head.file == writeFile) {
    if (!run.Takes(head.block, block.firstSending)) WriteOutRun();
    if (!HasFile()) return;
  }
  // It was asked for while its first sending still waited here.
  if (!block.firstSending && session.missing.IsStored(transfer->generation, {head.file, head.block})) return;
  if (head.file != writeFile && !OpenRecvFile(block)) return;
  run.Add(head.block, block.bytes);
  if (run.IsDue(head.lastBlock, block.firstSending)) WriteOutRun();
}

void Writer::CloseFile() {
  WriteOutRun();
  if (!HasFile()) return;
  const WriteOutcome outcome = recvFile->Close();
  recvFile.reset();
  if (outcome != WriteOutcome::Done) FailWrite(outcome);
  writeFile = 0;
}

// The directories come first, named as the sender names them; see CreateParentDirChain.
bool Writer::OpenRecvFile(const ReceivedBlock& block) {
  const Machine& machine = session.machine;
  const std::string name = ConvertName(machine, block.head.name, session.senderNtPlatform);
  const MappedPath mapped = MapFilePath(transfer->targetDir, name);
  if (mapped.status != QUORL_STATUS_FILE_UNWRITABLE) CreateParentDirChain(machine, transfer->targetDir, name);
  CloseFile();
  if (mapped.status != 0 || !TakesPlace(mapped.path, block.head.file)) {
    RefuseName(block, mapped.status != 0 ? mapped.status : uint32_t{QUORL_STATUS_FILE_UNWRITABLE});
    return false;
  }
  // A new file in the place of one that has been removed would lack what was stored in that.
  const bool begun = session.missing.HasStored(transfer->generation, block.head.file);
  OpenedOutput opened =
      machine.files.OpenOutput(mapped.path.base, mapped.path.name, begun ? WhenMissing::Fail : WhenMissing::Create);
  if (opened.outcome != WriteOutcome::Done) {
    FailOpen(block, QUORL_STATUS_FILE_UNWRITABLE, true);
    return false;
  }
  recvFile = std::move(opened.file);
  recvFileName = ToText(mapped.path);
  writeFile = block.head.file;
  return true;
}

void Writer::WriteOutRun() {
  if (run.IsEmpty()) return;
  const RunWrite write = run.Take();
  if (!HasFile()) return;
  const WriteOutcome outcome = recvFile->WriteAt(write.offset, write.bytes);
  if (outcome == WriteOutcome::Done) {
    session.missing.Store(transfer->generation, writeFile, write.firstBlock, write.blockCount);
    return;
  }
  recvFile->Close();
  recvFile.reset();
  FailWrite(outcome);
  writeFile = 0;
}

// Two files in one place would be a mixture of both, and count as complete. Classic mixes them.
bool Writer::TakesPlace(const LocalPath& path, uint32_t file) {
  return session.profile == Profile::Classic || places.try_emplace(ToText(path), file).first->second == file;
}

// Classic tries a file again with each of its blocks, and reports it again.
void Writer::FailOpen(const ReceivedBlock& block, uint32_t status, bool canPass) {
  const bool news = session.missing.Fail(transfer->generation, block.head.file, status);
  const bool tellsAgain = canPass && session.profile == Profile::Classic &&
                          session.missing.IsCurrent(transfer->generation) &&
                          !session.missing.HasStored(transfer->generation, block.head.file);
  if (news || tellsAgain) TellFailure(status);
}

void Writer::RefuseName(const ReceivedBlock& block, uint32_t status) {
  if (!session.missing.IsFailed(transfer->generation, block.head.file)) session.counters.Add(Count::RefusedNames);
  // A path that is too long is a failed open like others; where a name leads stays as it is.
  FailOpen(block, status, status == QUORL_STATUS_PATH_TOO_LONG);
}

void Writer::FailWrite(WriteOutcome outcome) {
  const uint32_t status = StatusOf(outcome);
  if (session.missing.Fail(transfer->generation, writeFile, status)) TellFailure(status);
}

// To tell the sender takes a while, in which a new transfer may have begun; of that nothing has failed.
void Writer::TellFailure(uint32_t status) {
  session.ClientSendFinish(status);
  if (session.missing.IsCurrent(transfer->generation)) session.host.PostStatus(status);
}

}  // namespace quorl
