#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "cli/outcome.h"

namespace quorl::cli {

/// Where the command writes: lines to standard output, progress and errors to standard error. Progress is one line that
/// is redrawn on a terminal, 5 times a second, and a line of its own every 10 s elsewhere. Used by the main thread.
class Console {
 public:
  Console();
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  void Say(std::string_view line);
  void Warn(std::string_view line);
  void Report(const Failure& failure);

  /// Whether a progress line would be written now; asked before what it shows is gathered.
  bool WantsProgress() const;
  void Progress(std::string_view line);

  /// Takes the progress line off the terminal.
  void ClearProgress();

 private:
  std::chrono::steady_clock::duration Interval() const;

  bool terminal = false;
  bool shown = false;
  std::chrono::steady_clock::time_point last;
};

}  // namespace quorl::cli
