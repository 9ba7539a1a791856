// How a transfer ends: at its normal end, with a code, at the host's wish, by a failed send, or with its sender.
#include "sender/transfer.h"

namespace quorl {

using namespace std::chrono_literals;

void Transfer::SendFinish() {
  const auto finish = Build(Finish{});
  for (int i = 0; i < ANNOUNCEMENT_COPIES; ++i) {
    if (context->sockets.SendToGroup(finish)) {
      context->machine.clock.Sleep(ANNOUNCEMENT_PAUSE);
      continue;
    }
    context->Debug("\nQuorl-----Send CMD_FINISH Failed\n");
    return CloseSockets();
  }
}

void Transfer::OrderEnd(uint32_t code) {
  {
    const std::scoped_lock lock(context->mutex);
    orders.Append({EndOrder{code}});
  }
  CarryOutOrders();
}

void Transfer::EndTransfer(uint32_t code) {
  if (code != 0) SendStop();
  ended = true;
  phase = SendPhase::Ended;
  context->Post(WM_TRANS_STATUS, code, 0);
  context->machine.clock.Sleep(10ms);
}

void Transfer::SendStop() {
  if (!context->SendRepeatedly(Build(quorl::Stop{}), ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE)) {
    context->Debug("\nQuorl-----Send Stop packet Failed!\n");
    CloseSockets();
  }
  if (replyStop) replyStop->Set();
  context->machine.clock.Sleep(10ms);
  context->Post(WM_TRANS_STATUS, QUORL_STATUS_DONE, 0);
  context->machine.clock.Sleep(10ms);
}

void Transfer::Stop() {
  // First the own threads, so that no block follows the news that the transfer is over.
  stopRequested = true;
  phase = SendPhase::Ended;
  Wake();
  SendStop();
}

void Transfer::Close() {
  CloseSockets();
  phase = phase == SendPhase::Ready ? SendPhase::Idle : SendPhase::Ended;
  Wake();
}

void Transfer::CloseSockets() {
  context->sockets.Close();
  {
    const std::scoped_lock lock(context->mutex);
    orders.Append({CloseResendFileOrder{}});
  }
  CarryOutOrders();
}

void Transfer::FailSend(const char* debugLine) {
  context->Debug(debugLine);
  CloseSockets();
  phase = SendPhase::Ended;
  context->Post(WM_TRANS_STATUS, QUORL_STATUS_SEND_FAILED, 0);
}

}  // namespace quorl
