#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "cli/system/waiting.h"

namespace quorl::cli {

/// Something that the main thread waits for.
struct InboxEvent {
  enum class Kind { Nothing, Message, File, Signal, Key };
  Kind kind = Kind::Nothing;
  uint32_t message = 0;  ///< WM_ number.
  uintptr_t wParam = 0;
  intptr_t lParam = 0;
  std::string text;  ///< Of a message that carries one; of a File its name, as it came.
  int signal = 0;    ///< 0: no signal.
  char key = 0;      ///< END_OF_INPUT also when there is no more input.
};

/// The library's messages, the signals that ask for an end, and keys, in one queue. Make it before the first thread of
/// the process (Waiter).
class Inbox {
 public:
  /// `everyFile`: each new name of a file is an event, Kind::File.
  explicit Inbox(bool everyFile = false);
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  /// The window to give to the library; NULL when it could not be made.
  QuorlWindow Window() const { return window; }

  /// Another window, and no messages: none of an earlier transfer can be taken for one of the next.
  void Renew();

  /// The oldest event; Kind::Nothing when none came within `limit`.
  InboxEvent Next(std::chrono::milliseconds limit);

  /// The signal that comes within `limit`, or 0. A message that comes first ends the wait and is dropped.
  int SignalWithin(std::chrono::milliseconds limit);

  /// As Next, and keys from standard input.
  InboxEvent NextOrKey(std::chrono::milliseconds limit);

  /// The name in the latest WM_FILE_NAME, as it came, and how many different ones there were before it.
  std::string CurrentFile();
  uint64_t FilesBefore();

 private:
  static void Receive(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam);
  InboxEvent Wait(std::chrono::milliseconds limit, bool keys);

  const bool everyFile;
  std::mutex lock;
  std::deque<InboxEvent> messages;
  std::string currentFile;
  uint64_t filesBefore = 0;
  Waiter waiter;
  QuorlWindow window = nullptr;
};

}  // namespace quorl::cli
