#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/time.h"
#include "platform/window_queue.h"
#include "platform/windows.h"

namespace quorl::sim {

class SimMachine;

/// A message as the library handed it over.
struct RecordedMessage {
  Moment at;
  uint32_t number = 0;
  uintptr_t wParam = 0;
  intptr_t lParam = 0;  ///< -1 where it would point to `text`.
  std::string text;
  bool sent = false;  ///< Sent, not posted.

  friend bool operator==(const RecordedMessage&, const RecordedMessage&) = default;
};

using WindowProcedure = std::function<void(uint32_t message, uintptr_t wParam, intptr_t lParam)>;

/// The host windows of a machine. All record; those with a procedure are also the real queue with its thread.
class MachineWindows : public Windows {
 public:
  MachineWindows(SimMachine& machine, Threads& threads) : machine(machine), queue(threads) {}

  QuorlWindow MakeWindow(WindowProcedure procedure);
  void DestroyWindow(QuorlWindow window);
  const std::vector<RecordedMessage>& Messages() const { return messages; }
  void SetTap(std::function<void(const RecordedMessage&)> newTap) { tap = std::move(newTap); }

  bool IsWindow(QuorlWindow window) override { return windows.contains(window); }
  bool Post(QuorlWindow window, HostMessage message) override;
  void Send(QuorlWindow window, HostMessage message) override;

 private:
  struct Window {
    QuorlWindow queued = nullptr;  ///< The handle in `queue`; nullptr for a window that only records.
    std::unique_ptr<WindowProcedure> procedure;
  };

  /// Where to deliver the message to beyond recording it, or nullptr.
  QuorlWindow Record(QuorlWindow window, const HostMessage& message, bool sent);

  SimMachine& machine;
  WindowQueue queue;
  std::map<QuorlWindow, Window> windows;
  std::vector<std::unique_ptr<WindowProcedure>> formerProcedures;  ///< Their threads may still run.
  uintptr_t lastHandle = 0;
  std::vector<RecordedMessage> messages;
  std::function<void(const RecordedMessage&)> tap;
};

}  // namespace quorl::sim
