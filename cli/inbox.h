#pragma once

#include <quorl/host.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

namespace quorl::cli {

/// Ctrl-D, as it comes from a terminal.
inline constexpr char END_OF_INPUT = 4;

/// Something that the main thread waits for.
struct Event {
  enum class Kind { Nothing, Message, File, Signal, Key };
  Kind kind = Kind::Nothing;
  uint32_t message = 0;  ///< WM_ number.
  uintptr_t wParam = 0;
  intptr_t lParam = 0;
  std::string text;  ///< Of a message that carries one; of a File its name, as it came.
  int signal = 0;
  char key = 0;  ///< END_OF_INPUT also when there is no more input.
};

/// The library's messages and the signals SIGINT, SIGTERM and SIGHUP (unless that is ignored, as under nohup), in one
/// queue. Make it before the first thread of the process, so that every thread leaves the signals to it. The first
/// signal is an event; with it the signals get their default action back, so that a second one ends the process at
/// once, whatever it waits for. The signals are blocked and SIGPIPE is ignored in this process: one that it starts
/// needs both put right.
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
  Event Next(std::chrono::milliseconds limit);

  /// The same, and keys from standard input.
  Event NextOrKey(std::chrono::milliseconds limit);

  /// The name in the latest WM_FILE_NAME, as it came, and how many different ones there were before it.
  std::string CurrentFile();
  uint64_t FilesBefore();

 private:
  static void Receive(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam);
  bool TakeMessage(Event& event);
  Event Wait(std::chrono::milliseconds limit, bool keys);

  const bool everyFile;
  std::mutex lock;
  std::deque<Event> messages;
  std::string currentFile;
  uint64_t filesBefore = 0;
  int wakeUp = -1;   ///< Counts messages, for poll.
  int signals = -1;  ///< Delivers the signals, for poll.
  QuorlWindow window = nullptr;
};

}  // namespace quorl::cli
