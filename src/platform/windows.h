#pragma once

#include <quorl/quorl.h>

#include <cstdint>
#include <optional>
#include <string>

namespace quorl {

/// A message for a host window. With a text, lParam is a pointer to a copy of it that lives until the host's window
/// procedure has returned.
struct HostMessage {
  uint32_t number = 0;
  uintptr_t wParam = 0;
  intptr_t lParam = 0;
  std::optional<std::string> text;
};

/// The windows of the host. Any thread may use it. A window that is null or has been destroyed gets nothing.
class Windows {
 public:
  virtual ~Windows() = default;

  virtual bool IsWindow(QuorlWindow window) = 0;

  /// Queues the message and returns at once. False when the queue was full, and this message or an older name of a file
  /// has been dropped.
  virtual bool Post(QuorlWindow window, HostMessage message) = 0;

  /// Returns when the host's window procedure has handled the message, or the window has been destroyed.
  virtual void Send(QuorlWindow window, HostMessage message) = 0;
};

}  // namespace quorl
