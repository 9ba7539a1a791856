#include "sim/machine/machine_windows.h"

#include "sim/machine/machine.h"

namespace quorl::sim {

namespace {

void CallProcedure(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  (*static_cast<WindowProcedure*>(context))(message, wParam, lParam);
}

}  // namespace

QuorlWindow MachineWindows::MakeWindow(WindowProcedure procedure) {
  Window window;
  if (procedure) {
    window.procedure = std::make_unique<WindowProcedure>(std::move(procedure));
    window.queued = queue.Create(&CallProcedure, window.procedure.get());
    if (window.queued == nullptr) return nullptr;
  }
  const QuorlWindow handle = reinterpret_cast<QuorlWindow>(++lastHandle);
  windows.emplace(handle, std::move(window));
  return handle;
}

void MachineWindows::DestroyWindow(QuorlWindow handle) {
  auto window = windows.extract(handle);
  if (window.empty() || window.mapped().queued == nullptr) return;
  formerProcedures.push_back(std::move(window.mapped().procedure));
  queue.Destroy(window.mapped().queued);
}

bool MachineWindows::Post(QuorlWindow window, HostMessage message) {
  const QuorlWindow queued = Record(window, message, false);
  return queued == nullptr || queue.Post(queued, std::move(message));
}

void MachineWindows::Send(QuorlWindow window, HostMessage message) {
  if (const QuorlWindow queued = Record(window, message, true)) queue.Send(queued, std::move(message));
}

QuorlWindow MachineWindows::Record(QuorlWindow handle, const HostMessage& message, bool sent) {
  const auto window = windows.find(handle);
  if (window == windows.end() || machine.IsOff()) return nullptr;
  if (machine.IsLogging() || message.number != WM_FILE_NAME) {
    RecordedMessage recorded{machine.Schedule().Now(), message.number, message.wParam, message.lParam, {}, sent};
    if (message.text) {
      recorded.lParam = -1;
      recorded.text = *message.text;
    }
    machine.Log(sent ? "message sent" : "message posted", recorded.number, recorded.wParam, recorded.lParam,
                recorded.text);
    messages.push_back(std::move(recorded));
    if (tap) tap(messages.back());
  }
  return window->second.queued;
}

}  // namespace quorl::sim
