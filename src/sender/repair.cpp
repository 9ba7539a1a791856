// The sending side of the repair: each request costs one seek, one read and one datagram.
//
// Runs on the thread that has decided, or on another that was carrying out orders just then; never on the host's, which
// a disk could keep. What fails is not told to the flow control: every thread finds out at its next look.
#include "sender/repair.h"

namespace quorl {

Repair::Repair(const TransferParts& parts)
    : parts(parts), resendFile(parts.context.machine.clock), pacer(parts.plan.rate) {}

void Repair::CarryOut(const Order& order) {
  // A transfer that its host has stopped says nothing more to anybody.
  if (parts.end.IsStopRequested() && !std::holds_alternative<CloseResendFileOrder>(order)) return;
  std::visit([&](const auto& which) { Do(which); }, order);
}

void Repair::Do(const SendMasterOrder& order) {
  const bool sent = parts.context.sockets.SendTo(order.to, Build(Master{order.state}), parts.end.Patience());
  if (!sent && !parts.end.IsStopRequested()) FailToName(order.state);
}

void Repair::FailToName(uint32_t state) {
  const char* const line = state == 0 ? "\nQuorl-----Send Packet to Master Failed When Master is FALSE!"
                                      : "\nSend Packet to Master Failed When Master is TRUE!";
  if (parts.context.profile == Profile::Robust) return parts.end.FailSend(line);
  if (state != 0) parts.end.SendStop(parts.end.Patience());
  parts.context.sockets.Close();
  parts.context.Debug(line);
}

void Repair::Do(const SendReleaseOrder& order) {
  const bool sent = parts.context.sockets.SendTo(order.to, Build(order.release), parts.end.Patience());
  if (sent || parts.end.IsStopRequested()) return;
  constexpr const char* LINE = "\nQuorl-----Send to Master Failed!\n";
  if (parts.context.profile == Profile::Robust) return parts.end.FailSend(LINE);
  parts.context.Debug(LINE);
  parts.context.sockets.Close();
}

void Repair::Do(const ResendOrder& order) {
  if (parts.end.HasEnded()) return;
  SenderContext& context = parts.context;
  context.Debug("\nQuorl-----Send file to client\n");
  const bool isOpen = order.file == lastResentFile && resendFile.IsOpen();
  const bool ready = isOpen || OpenResendFile(order.file);
  datagram.SetBlock(order.block);
  const auto block = ready ? resendFile.Read(order.block, datagram.BlockBytes()) : std::nullopt;
  // A slow disk may have let the transfer be stopped, and another be started, meanwhile.
  if (parts.end.IsStopRequested()) return;
  if (!block) return parts.end.EndTransfer(QUORL_STATUS_FILE_UNREADABLE);
  if (block->isShort) parts.progress.NoteShrunkFile(order.file);

  const auto bytes = datagram.Datagram(block->bytes);
  if (!HoldToRate()) return;
  if (!context.sockets.SendToGroup(bytes, parts.end.Patience())) return FailToResend();
  pacer.ChangeRate(context.rate);
  pacer.Sent(context.machine.clock.Now(), bytes.size());
  context.PostFileName(order.file, parts.plan.File(order.file).relativeName);
  parts.progress.NoteBlock(order.file, true);
}

void Repair::FailToResend() {
  if (parts.end.IsStopRequested()) return;
  constexpr const char* LINE = "\nQuorl-----Send file or directory information failed\n";
  if (parts.context.profile == Profile::Robust) return parts.end.FailSend(LINE);
  parts.context.Debug(LINE);
  parts.end.EndTransfer(QUORL_STATUS_FILE_UNREADABLE);
}

void Repair::Do(const EndOrder& order) {
  parts.end.EndTransfer(order.code);
}

void Repair::Do(const ClientErrorOrder& order) {
  parts.context.Debug("Quorl......PostMessage WM_CLIENT_ERR\n");
  parts.context.Post(WM_CLIENT_ERR, order.status, static_cast<intptr_t>(order.address));
}

void Repair::Do(const CloseResendFileOrder&) {
  resendFile.Close();
}

bool Repair::OpenResendFile(uint32_t number) {
  if (!OpenForTransfer(resendFile, parts, number)) return false;
  datagram.SetFile(number, parts.plan.File(number).relativeName, resendFile.Shape());
  lastResentFile = number;
  return true;
}

/// The fixed pacing leaves the repair to the pace of the requests; a rate holds for every block. False when the wait
/// was cut short.
bool Repair::HoldToRate() {
  if (parts.plan.rate == 0) return true;
  const auto next = pacer.NextSend(true);
  return !next || parts.end.PauseUntil(*next);
}

}  // namespace quorl
