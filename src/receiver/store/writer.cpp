// The writer: takes the blocks that the receive loop queued, in the order in which they came, and puts each into its
// file under the target directory. It alone knows what has reached the disk, and tells the record of stored blocks; a
// file that cannot be opened, written or closed is marked there as failed, so that its transfer never counts as
// complete.
#include "receiver/store/writer.h"

#include <quorl/quorl.h>

#include <utility>

#include "receiver/session/receiver_session.h"
#include "receiver/session/threads.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration BETWEEN_LOOKS = 2ms;

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
  bool hasWritten = false;
  for (bool over = false;;) {
    if (session.stop.IsAborted()) return false;
    if (const std::optional<ReceivedBlocks> blocks = session.queue.Pop()) {
      session.writer.WriteBlocks(*blocks);
      hasWritten = true;
    } else if (const std::optional<uint64_t> request = session.queue.OpenSettleRequest()) {
      session.writer.CloseFile();
      session.queue.ConfirmSettled(*request);
      session.wake->Set();
    } else if (over) {
      return true;
    } else if (session.stop.IsFinished()) {
      // Blocks queued before the end was seen still count.
      over = true;
    } else if (std::exchange(hasWritten, false)) {
      // More is to come: to wake for each block would cost more than to write it.
      session.machine.clock.Sleep(BETWEEN_LOOKS);
    } else {
      // What is set after the reset is seen by the next look at everything.
      session.queue.News()->Wait(FOREVER);
      session.queue.News()->Reset();
    }
  }
}

void TellEnd(ReceiverSession& session) {
  const TransferPtr transfer = session.CurrentTransfer();
  session.ended = true;
  if (!session.rules.tellsAnyEndAsComplete && !session.IsComplete()) {
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
    session.rules.closesFileAtEnd ? session.writer.CloseFile() : session.writer.WriteOutRun();
    TellEnd(session);
  }
  session.writeDone->Set();
  if (transferOver) session.machine.debug.Write("\nQuorl----transmission over---------WriteThread\n");
}

void Writer::WriteBlocks(const ReceivedBlocks& blocks) {
  const BlockHead& head = blocks.head;
  if (blocks.transfer != transfer) {
    CloseFile();
    transfer = blocks.transfer;
    places.clear();
    writeFile = 0;
  }
  // It has no place in its file.
  if (head.block > head.lastBlock) return;
  if (!session.rules.triesFailedFilesAgain && IsFailed(head.file)) return;
  if (head.file == writeFile && !run.Takes(head.block, blocks.firstSending)) WriteOutRun();
  if (head.file == writeFile && !HasFile()) {
    if (session.rules.dropsBlocksAfterFailedOpen) return;
    writeFile = 0;
  }
  if (head.file != writeFile && !OpenRecvFile(blocks)) return;
  if (blocks.count > 1) {
    WriteOutRun();
    return Write({head.block, blocks.count, FileShape::BlockOffset(head.block), blocks.bytes});
  }
  run.Add(head.block, blocks.bytes);
  if (run.IsDue(head.lastBlock, blocks.firstSending)) WriteOutRun();
}

void Writer::CloseFile() {
  WriteOutRun();
  if (!HasFile()) return;
  const WriteOutcome outcome = recvFile->Close();
  recvFile.reset();
  // The host may have taken the last file away since it was told the end.
  if (outcome == WriteOutcome::Done || session.ended) return;
  if (outcome == WriteOutcome::Removed && session.rules.remakesRemovedFiles) {
    session.record.With([&](BlockRecord& record) { record.Spoil(transfer->generation, writeFile); });
  } else {
    FailWrite(outcome);
  }
}

// The directories come first, named as the sender names them; see CreateParentDirChain.
bool Writer::OpenRecvFile(const ReceivedBlocks& blocks) {
  const Machine& machine = session.machine;
  const std::string name = ConvertName(machine, blocks.head.name, session.senderNtPlatform);
  const MappedPath mapped = MapFilePath(transfer->targetDir, name);
  if (mapped.status != QUORL_STATUS_FILE_UNWRITABLE) {
    if (!session.rules.makesTargetOnce) machine.files.MakeTarget(transfer->targetDir);
    CreateParentDirChain(machine, transfer->targetDir, name);
  }
  CloseFile();
  if (mapped.status != 0 || !TakesPlace(mapped.path, blocks.head.file)) {
    RefuseName(blocks, mapped.status != 0 ? mapped.status : uint32_t{QUORL_STATUS_FILE_UNWRITABLE});
    return false;
  }
  OpenedOutput opened = Open(mapped.path, blocks.head.file);
  if (!opened.file) {
    FailOpen(blocks, session.rules.looksForNames ? StatusOf(opened.outcome) : uint32_t{QUORL_STATUS_FILE_UNWRITABLE});
    return false;
  }
  recvFile = std::move(opened.file);
  recvFileName = ToText(mapped.path);
  writeFile = blocks.head.file;
  writeName = name;
  return true;
}

// A new file in the place of one that has been removed lacks what was stored in that.
OpenedOutput Writer::Open(const LocalPath& path, uint32_t file) {
  const uint32_t generation = transfer->generation;
  const bool begun = session.record.With([&](BlockRecord& record) { return record.HasStored(generation, file); });
  Files& files = session.machine.files;
  OpenedOutput opened = files.OpenOutput(path.base, path.name, begun ? WhenMissing::Fail : WhenMissing::Create);
  if (!begun || opened.file || !session.rules.remakesRemovedFiles) return opened;
  session.record.With([&](BlockRecord& record) { record.Spoil(generation, file); });
  return files.OpenOutput(path.base, path.name, WhenMissing::Create);
}

void Writer::WriteOutRun() {
  if (!run.IsEmpty()) Write(run.Take());
}

void Writer::Write(const RunWrite& write) {
  if (!HasFile()) return;
  const WriteOutcome outcome = recvFile->WriteAt(write.offset, write.bytes);
  if (outcome == WriteOutcome::Done) {
    if (transfer->listener) transfer->listener(writeFile, writeName, write.firstBlock, write.bytes);
    session.record.With([&](BlockRecord& record) {
      record.Store(transfer->generation, writeFile, write.firstBlock, write.blockCount);
    });
    return;
  }
  recvFile->Close();
  recvFile.reset();
  FailWrite(outcome);
  writeFile = 0;
}

// Two files in one place would be a mixture of both.
bool Writer::TakesPlace(const LocalPath& path, uint32_t file) {
  const uint32_t first = places.try_emplace(ToText(path), file).first->second;
  if (first == file) return true;
  if (!session.rules.mixesFilesOfOnePlace) return false;
  session.record.With([&](BlockRecord& record) {
    record.Spoil(transfer->generation, first);
    record.Spoil(transfer->generation, file);
  });
  return true;
}

bool Writer::IsFailed(uint32_t file) {
  return session.record.With([&](BlockRecord& record) { return record.IsFailed(transfer->generation, file); });
}

bool Writer::Fail(uint32_t file, uint32_t status) {
  const bool news =
      session.record.With([&](BlockRecord& record) { return record.Fail(transfer->generation, file, status); });
  session.wake->Set();
  return news;
}

void Writer::FailOpen(const ReceivedBlocks& blocks, uint32_t status) {
  if (Fail(blocks.head.file, status) || session.rules.triesFailedFilesAgain) TellFailure(status);
}

void Writer::RefuseName(const ReceivedBlocks& blocks, uint32_t status) {
  if (!IsFailed(blocks.head.file)) session.counters.Add(Count::RefusedNames);
  FailOpen(blocks, status);
}

void Writer::FailWrite(WriteOutcome outcome) {
  const uint32_t status = StatusOf(outcome);
  if (Fail(writeFile, status)) TellFailure(status);
}

// To tell the sender takes a while, in which a new transfer may have begun; of that nothing has failed.
void Writer::TellFailure(uint32_t status) {
  const auto isCurrent = [&] {
    return session.record.With([&](BlockRecord& record) { return record.Generation() == transfer->generation; });
  };
  if (!isCurrent()) return;
  session.ClientSendFinish(status, session.rules.failureCopies);
  if (isCurrent()) session.host.PostStatus(status);
}

}  // namespace quorl
