// What a receiver's threads and its host read and write beside the transfer's blocks, and where the receiver stands.
#include "receiver/receiver_session.h"

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

ReceiveState ReceiverSession::GetState() {
  const TransferPtr current = CurrentTransfer();
  const MissingBlocks::Counts counts = missing.Count();
  ReceiveState state;
  state.phase = Phase(*current);
  state.complete = missing.IsWhole();
  state.files = current->task.fileCount;
  state.failedFiles = counts.failedFiles;
  state.blocksExpected = current->task.totalBlocks;
  state.blocksStored = counts.stored;
  state.blocksMissing = counts.missing;
  state.firstFailure = host.FirstFailure();
  state.senderAddress = replies.Sender();
  state.currentName = CurrentName();
  if (current->task.targetFolder == LITERAL_TARGET)
    state.askedTarget = ConvertName(machine, current->task.targetPath, senderNtPlatform);
  state.targetDir = current->targetDir;
  return state;
}

ReceivePhase ReceiverSession::Phase(const AnnouncedTransfer& current) {
  if (ended && missing.IsWhole()) return ReceivePhase::Complete;
  if (host.FirstFailure() != 0) return ReceivePhase::Failed;
  // A run that the sender ended without having announced anything has nothing to show.
  if (ended || stopSeen) return ReceivePhase::Stopped;
  if (!current.IsAnnounced()) return ReceivePhase::Idle;
  return IsAnswerPending() ? ReceivePhase::Receiving : ReceivePhase::Repairing;
}

}  // namespace quorl
