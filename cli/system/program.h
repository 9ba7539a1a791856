#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/system/error.h"

namespace quorl::cli {

/// How a program ended.
struct ProgramEnd {
  int exitCode = 0;
  int signal = 0;          ///< Not 0: it ended by this signal.
  SystemError notStarted;  ///< Why it could not even be started.
};

/// What a program gets besides its arguments.
struct ProgramStreams {
  enum class Output {
    Inherited,
    ToError,  ///< To standard error.
    ToFile,   ///< Both, standard error too, to a new file.
  };
  Output output = Output::Inherited;
  std::string file;      ///< For ToFile.
  bool hasInput = true;  ///< Standard input; else it is empty.
};

/// Another program, run without a shell and found as a shell would find it. It gets its signals as this process found
/// them when it began, and nothing that is open here but its streams.
class Program {
 public:
  static Program Start(const std::string& program, const std::vector<std::string>& arguments,
                       const ProgramStreams& streams);

  /// Its end, once; nothing while it runs.
  std::optional<ProgramEnd> Poll();
  ProgramEnd Wait();

  void Interrupt() const;
  void Terminate() const;

 private:
  struct State;
  std::shared_ptr<State> state;  ///< Null when it could not be started.
  SystemError notStarted;
};

/// Why the program cannot be run; it is found as Program finds it.
SystemError WhyNotRunnable(const std::string& program);

/// The path of the program that this process runs.
std::string OwnProgram();

/// The program that opens a file given to it as the desktop would.
std::string FileOpener();

}  // namespace quorl::cli
