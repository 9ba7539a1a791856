// What a receiver's threads and its host read and write beside the transfer's blocks, and where the receiver stands.
#include "receiver/session/receiver_session.h"

#include <algorithm>
#include <utility>

#include "files/names.h"
#include "files/target_dir.h"

namespace quorl {

TransferPtr ReceiverSession::CurrentTransfer() {
  const std::scoped_lock locked(nameLock);
  return transfer;
}

void ReceiverSession::SetTransfer(TransferPtr next) {
  const std::scoped_lock locked(nameLock);
  transfer = std::move(next);
}

void ReceiverSession::SetReceiveRoot(const std::string& drivePath) {
  const std::scoped_lock locked(nameLock);
  receiveRoot = drivePath;
}

std::string ReceiverSession::ReceiveRoot() {
  const std::scoped_lock locked(nameLock);
  return receiveRoot;
}

std::string ReceiverSession::CurrentName() {
  const std::scoped_lock locked(nameLock);
  return curName;
}

void ReceiverSession::SetCurrentName(const std::string& name) {
  const std::scoped_lock locked(nameLock);
  curName = name;
}

std::string ReceiverSession::AutoOpenName() {
  const std::scoped_lock locked(nameLock);
  return aofName;
}

void ReceiverSession::SetAutoOpenName(const std::string& name) {
  const std::scoped_lock locked(nameLock);
  aofName = name;
}

void ReceiverSession::SetHeld(BlockRanges blocks) {
  const std::scoped_lock locked(nameLock);
  held = std::move(blocks);
  heldFor = mail->Sender();
}

BlockRanges ReceiverSession::TakeHeld(uint32_t announcer) {
  const std::scoped_lock locked(nameLock);
  BlockRanges taken = std::exchange(held, BlockRanges());
  return heldFor == Mail::Correspondent(announcer, mail->Sender().second) ? std::move(taken) : BlockRanges();
}

void ReceiverSession::SetStoreListener(StoreListener next) {
  const std::scoped_lock locked(nameLock);
  storeListener = std::move(next);
}

StoreListener ReceiverSession::TakeStoreListener() {
  const std::scoped_lock locked(nameLock);
  return std::exchange(storeListener, nullptr);
}

std::vector<BlockRange> ReceiverSession::StoredBlocks() {
  return record.With([](BlockRecord& blocks) { return blocks.StoredRanges(); });
}

bool ReceiverSession::IsComplete() {
  return ended && record.With([](BlockRecord& blocks) { return blocks.IsWhole(); });
}

ReceiveState ReceiverSession::GetState() {
  const TransferPtr current = CurrentTransfer();
  ReceiveState state;
  state.files = current->task.fileCount;
  state.blocksExpected = current->task.totalBlocks;
  record.With([&](BlockRecord& blocks) {
    state.complete = blocks.IsWhole();
    state.failedFiles = blocks.FailedFiles();
    state.blocksStored = std::min<uint64_t>(blocks.StoredCount(), state.blocksExpected);
    state.bytesStored = blocks.StoredBytes();
    state.isMaster = repair->IsMaster();
    if (const StreamGaps* gaps = repair->Gaps()) {
      state.blocksCame = gaps->Came();
      state.blocksLost = gaps->Lost();
    }
  });
  state.blocksMissing = state.complete ? 0 : state.blocksExpected - state.blocksStored;
  state.phase = Phase(*current);
  state.firstFailure = host.FirstFailure();
  state.senderAddress = replies.Sender();
  state.otherSender = otherRoom.Sender(machine.clock.Now());
  state.senderCapabilities = mail->SenderCapabilities();
  state.underWay = mail->TransferOf(state.otherSender);
  state.currentName = CurrentName();
  if (current->task.targetFolder == LITERAL_TARGET)
    state.askedTarget = ConvertName(machine, current->task.targetPath, senderNtPlatform);
  state.targetDir = current->targetDir;
  return state;
}

ReceivePhase ReceiverSession::Phase(const AnnouncedTransfer& current) {
  if (IsComplete()) return ReceivePhase::Complete;
  if (host.FirstFailure() != 0) return ReceivePhase::Failed;
  // A run that the sender ended without having announced anything has nothing to show.
  if (ended || stopSeen) return ReceivePhase::Stopped;
  if (!current.IsAnnounced()) return ReceivePhase::Idle;
  const bool streaming = record.With([&](BlockRecord&) { return repair->IsStreaming(); });
  return streaming ? ReceivePhase::Receiving : ReceivePhase::Repairing;
}

}  // namespace quorl
