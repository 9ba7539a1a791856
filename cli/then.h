#pragma once

#include <sys/types.h>

#include <deque>
#include <optional>
#include <string>

namespace quorl::cli {

/// How a program that was started ended.
struct ProgramEnd {
  int exitCode = 0;
  int signal = 0;      ///< Not 0: it ended by this signal.
  int startError = 0;  ///< Not 0: an errno, it could not be started.
};

/// "it ended with exit code 3".
std::string InWords(const ProgramEnd& end);

/// A program that is run with one argument after the other, without a shell. A run gets nothing on standard input,
/// writes to standard error, and has its signals as in a new process.
class FollowUp {
 public:
  /// Throws a Failure when `program` is a path to nothing that can be run.
  explicit FollowUp(const std::string& program);

  void Want(const std::string& argument) { wanted.push_back(argument); }
  bool IsBusy() const { return !wanted.empty() || process; }

  /// Tells of a run that has ended, or else starts the next one that is wanted.
  std::optional<ProgramEnd> Poll();

 private:
  std::string program;
  std::deque<std::string> wanted;
  std::optional<pid_t> process;
};

}  // namespace quorl::cli
