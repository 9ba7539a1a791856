#pragma once

#include <deque>
#include <optional>
#include <string>

#include "cli/system/program.h"

namespace quorl::cli {

/// "ended with exit code 3".
std::string InWords(const ProgramEnd& end);

/// A program that is run with one argument after the other. A run gets nothing on standard input and writes to standard
/// error. Nothing that came over the network gets into its arguments or environment, but for the name of a file that
/// --open was given for.
class FollowUp {
 public:
  enum class Check { Now, WhenRun };
  /// Throws a Failure when `program` cannot be run, if that is to be seen now.
  FollowUp(const std::string& program, Check check);

  void Want(const std::string& argument) { wanted.push_back(argument); }
  bool IsBusy() const { return !wanted.empty() || running; }

  /// Tells of a run that has ended, or else starts the next one that is wanted.
  std::optional<ProgramEnd> Poll();

 private:
  std::string program;
  std::deque<std::string> wanted;
  std::optional<Program> running;
};

}  // namespace quorl::cli
