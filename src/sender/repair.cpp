// The sending side of the repair: each request costs one seek, one read and one datagram.
//
// Runs on the thread that has decided, or on another that was carrying out orders just then. A failed send of a
// CMD_MASTER or CMD_RELEASE closes the sockets, a failed CMD_RESEND ends the transfer: the flow control is not told,
// since every thread finds out at its next look.
#include "sender/repair.h"

#include <cassert>

#include "sender/transfer.h"

namespace quorl {

void Repair::CarryOut(const Order& order) {
  // A transfer that its host has stopped says nothing more to anybody.
  if (transfer.IsStopRequested() && !std::holds_alternative<CloseResendFileOrder>(order)) return;
  std::visit([&](const auto& which) { Do(which); }, order);
}

void Repair::Do(const SendMasterOrder& order) {
  SenderContext& context = transfer.Context();
  if (context.sockets.SendTo(order.to, Build(Master{order.state}))) return;
  if (order.state == 0) {
    context.Debug("\nQuorl-----Send Packet to Master Failed When Master is FALSE!");
    transfer.CloseSockets();
  } else {
    transfer.SendStop();
    transfer.CloseSockets();
    context.Debug("\nSend Packet to Master Failed When Master is TRUE!");
  }
}

void Repair::Do(const SendReleaseOrder& order) {
  SenderContext& context = transfer.Context();
  if (context.sockets.SendTo(order.to, Build(order.release))) return;
  context.Debug("\nQuorl-----Send to Master Failed!\n");
  transfer.CloseSockets();
}

void Repair::Do(const ResendOrder& order) {
  if (transfer.HasEnded()) return;
  SenderContext& context = transfer.Context();
  context.Debug("\nQuorl-----Send file to client\n");
  const bool isOpen = order.file == lastResentFile && resendFile.IsOpen();
  const bool ready = isOpen || OpenResendFile(order.file);
  datagram.SetBlock(order.block);
  const auto block = ready ? resendFile.Read(order.block, datagram.BlockBytes()) : std::nullopt;
  // A slow disk may have let the transfer be stopped, and another be started, meanwhile.
  if (transfer.IsStopRequested()) return;
  if (!block) return transfer.EndTransfer(QUORL_STATUS_FILE_UNREADABLE);
  if (block->isShort) transfer.NoteShrunkFile(order.file);

  const auto bytes = datagram.Datagram(block->bytes);
  if (!HoldToRate()) return;
  if (!context.sockets.SendToGroup(bytes)) {
    context.Debug("\nQuorl-----Send file or directory information failed\n");
    return transfer.EndTransfer(QUORL_STATUS_FILE_UNREADABLE);
  }
  pacer.Sent(context.machine.clock.Now(), bytes.size());
  context.PostFileName(transfer.Plan().lists->ArraySendFile[order.file - 1].relativeName);
  transfer.NoteBlock(order.file, true);
}

void Repair::Do(const EndOrder& order) {
  transfer.EndTransfer(order.code);
}

void Repair::Do(const ClientErrorOrder& order) {
  SenderContext& context = transfer.Context();
  context.Debug("Quorl......PostMessage WM_CLIENT_ERR\n");
  context.Post(WM_CLIENT_ERR, order.status, static_cast<intptr_t>(order.address));
}

void Repair::Do(const CloseResendFileOrder&) {
  resendFile.Close();
}

bool Repair::OpenResendFile(uint32_t number) {
  const auto& files = transfer.Plan().lists->ArraySendFile;
  assert(number >= 1 && number <= files.size());
  const FileEntry& entry = files[number - 1];
  if (!resendFile.Open(transfer.Context().machine.files, entry.fullPath, transfer.Plan().blocks.shapes[number - 1]))
    return false;
  datagram.SetFile(number, entry.relativeName, resendFile.Shape());
  lastResentFile = number;
  return true;
}

/// The fixed pacing leaves the repair to the pace of the requests; a rate holds for every block. False when the wait
/// was cut short.
bool Repair::HoldToRate() {
  if (rate == 0) return true;
  const auto next = pacer.NextSend(true);
  return !next || transfer.PauseUntil(*next);
}

}  // namespace quorl
