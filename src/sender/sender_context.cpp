#include "sender/sender_context.h"

namespace quorl {

void SenderContext::Post(uint32_t message, uintptr_t wParam, intptr_t lParam) const {
  machine.windows.Post(hostWindow, {message, wParam, lParam, {}});
}

void SenderContext::PostFileName(uint32_t file, const std::string& name) {
  if (shownFile.exchange(file) == file && profile == Profile::Robust) return;
  machine.windows.Post(hostWindow, {WM_FILE_NAME, 0, 0, name});
}

void SenderContext::BeginTransfer(uint32_t fileCount) {
  shownFile = 0;
  if (!flow || profile == Profile::Robust) {
    table.Forget();
    flow = MakeMasterFlow(profile, table);
  }
  flow->BeginTransfer(fileCount);
}

bool SenderContext::SendRepeatedly(std::span<const uint8_t> datagram, int times, Duration pause, const SendWait& wait) {
  bool sent = false;
  for (int i = 0; i < times; ++i) {
    sent = sockets.SendToGroup(datagram, wait) || sent;
    if (i + 1 < times || profile == Profile::Classic) machine.clock.Sleep(pause);
  }
  return sent;
}

}  // namespace quorl
