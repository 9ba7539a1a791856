#include "sender/sender_context.h"

namespace quorl {

void SenderContext::Post(uint32_t message, uintptr_t wParam, intptr_t lParam) const {
  machine.windows.Post(hostWindow, {message, wParam, lParam, {}});
}

void SenderContext::PostFileName(const std::string& name) const {
  machine.windows.Post(hostWindow, {WM_FILE_NAME, 0, 0, name});
}

bool SenderContext::SendRepeatedly(std::span<const uint8_t> datagram, int times, Duration pause) {
  bool sent = false;
  for (int i = 0; i < times; ++i) {
    sent = sockets.SendToGroup(datagram) || sent;
    machine.clock.Sleep(pause);
  }
  return sent;
}

}  // namespace quorl
