#pragma once

#include <chrono>
#include <memory>

namespace quorl::cli {

/// Ctrl-D, as it comes from a terminal.
inline constexpr char END_OF_INPUT = 4;

/// What ended a wait.
struct Woken {
  enum class By { Nothing, Signal, Call, Key };
  By by = By::Nothing;
  int signal = 0;  ///< SIGINT, SIGTERM or SIGHUP, as this system numbers them.
  char key = 0;    ///< END_OF_INPUT also when there is no more input.
};

/// Where the main thread waits: for calls of other threads, for requests to stop, for keys.
///
/// Make it before the first thread of the process, so that every thread leaves the signals to it (SIGHUP is left alone
/// where it is ignored, as under nohup). With the first signal that comes out the signals get their default action
/// back, so that a second one ends the process at once, whatever it waits for.
class Waiter {
 public:
  Waiter();
  ~Waiter();
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;

  /// Ends one wait, the present or the next. Any thread.
  void Call();
  void ForgetCalls();

  /// Signals come before calls, calls before keys.
  Woken Wait(std::chrono::milliseconds limit, bool keys);

 private:
  struct State;
  std::unique_ptr<State> state;
};

}  // namespace quorl::cli
