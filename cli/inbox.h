#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

namespace quorl::cli {

/// Something that the main thread waits for.
struct Event {
  enum class Kind { Nothing, Message, Signal };
  Kind kind = Kind::Nothing;
  uint32_t message = 0;  ///< WM_ number.
  uintptr_t wParam = 0;
  intptr_t lParam = 0;
  std::string text;  ///< Of a message that carries one.
  int signal = 0;
};

/// The library's messages and the signals SIGINT and SIGTERM, in one queue. Make it before the first thread of the
/// process, so that every thread leaves the signals to it. The first signal is an event; with it the signals get their
/// default action back, so that a second one ends the process at once, whatever it waits for.
class Inbox {
 public:
  Inbox();
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  /// The window to give to the library; NULL when it could not be made.
  QuorlWindow Window() const { return window; }

  /// The oldest event; Kind::Nothing when none came within `limit`.
  Event Next(std::chrono::milliseconds limit);

  /// The name in the latest WM_FILE_NAME, as it came.
  std::string CurrentFile();

 private:
  static void Receive(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam);
  bool TakeMessage(Event& event);

  std::mutex lock;
  std::deque<Event> messages;
  std::string currentFile;
  int wakeUp = -1;   ///< Counts messages, for poll.
  int signals = -1;  ///< Delivers the signals, for poll.
  QuorlWindow window = nullptr;
};

}  // namespace quorl::cli
