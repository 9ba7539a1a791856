// How a transfer ends: at its normal end, with a code, at the host's wish, by a send that fails, or by a disk that no
// longer answers.
//
// In the classic profile a send that fails closes the sockets, and each thread of the transfer finds that out for
// itself and tells the host; its watchdog can go on for long, with a message at each of its calls. In the robust one
// the first to fail ends it for all of them.
#include "sender/transfer_end.h"

namespace quorl {

using namespace std::chrono_literals;

namespace {

constexpr Duration STOP_PAUSE = 10ms;

/// A link that has no room for a datagram for so long has gone.
constexpr Duration LINK_PATIENCE = 60s;

/// For each copy of CMD_STOP, when the host waits for it.
constexpr Duration STOP_PATIENCE = 1s;

}  // namespace

TransferEnd::TransferEnd(SenderContext& context, Progress& progress)
    : context(context),
      progress(progress),
      wake(context.machine.threads.MakeEvent()),
      replyStop(context.machine.threads.MakeEvent()),
      answered(context.machine.threads.MakeEvent()) {}

bool TransferEnd::PauseUntil(Moment moment) {
  Clock& clock = context.machine.clock;
  for (Duration left = moment - clock.Now(); left > Duration::zero(); left = moment - clock.Now())
    if (wake->Wait(left)) return false;
  return !wake->IsSet();
}

SendWait TransferEnd::Patience() const {
  return {context.profile == Profile::Robust ? LINK_PATIENCE : FOREVER, wake.get()};
}

void TransferEnd::Wake() {
  if (wake) wake->Set();
  if (answered) answered->Set();
}

bool TransferEnd::RequestStop() {
  const bool isFirst = !stopRequested.exchange(true);
  progress.Reach(SendPhase::Ended);
  Wake();
  if (replyStop) replyStop->Set();
  return isFirst;
}

void TransferEnd::EndTransfer(uint32_t code) {
  if (code != 0) SendStop(Patience());
  ended = true;
  progress.Reach(SendPhase::Ended);
  context.Post(WM_TRANS_STATUS, code, 0);
  context.machine.clock.Sleep(STOP_PAUSE);
}

void TransferEnd::SendStop(const SendWait& wait) {
  if (!context.SendRepeatedly(Build(quorl::Stop{}), ANNOUNCEMENT_COPIES, ANNOUNCEMENT_PAUSE, wait)) {
    context.Debug("\nQuorl-----Send Stop packet Failed!\n");
    context.sockets.Close();
  }
  if (replyStop) replyStop->Set();
  context.machine.clock.Sleep(STOP_PAUSE);
  context.Post(WM_TRANS_STATUS, QUORL_STATUS_DONE, 0);
  context.machine.clock.Sleep(STOP_PAUSE);
}

void TransferEnd::SendStopWithoutThem() {
  SendStop({STOP_PATIENCE, nullptr});
}

void TransferEnd::GiveUp(uint32_t code) {
  if (!RequestStop()) return;
  SendStopWithoutThem();
  context.Post(WM_TRANS_STATUS, code, 0);
}

void TransferEnd::FailSend(const char* debugLine) {
  if (IsStopRequested()) return;
  context.Debug(debugLine);
  context.sockets.Close();
  if (context.profile == Profile::Robust && !RequestStop()) return;
  progress.Reach(SendPhase::Ended);
  context.Post(WM_TRANS_STATUS, QUORL_STATUS_SEND_FAILED, 0);
}

}  // namespace quorl
