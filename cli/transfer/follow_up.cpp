#include "cli/transfer/follow_up.h"

#include <fmt/format.h>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"

namespace quorl::cli {

std::string InWords(const ProgramEnd& end) {
  if (end.notStarted) return fmt::format("could not be started: {}", end.notStarted.text);
  if (end.signal != 0) return fmt::format("was ended by signal {}", end.signal);
  return fmt::format("ended with exit code {}", end.exitCode);
}

FollowUp::FollowUp(const std::string& program, Check check) : program(program) {
  const SystemError error = WhyNotRunnable(program);
  if (!error || check == Check::WhenRun) return;
  throw Failure{Exit::LocalFiles,
                fmt::format("\"{}\" cannot be run", Escape(program)),
                error.text,
                {"--then takes the path of one program, or its name where PATH leads to it."}};
}

std::optional<ProgramEnd> FollowUp::Poll() {
  if (!running && !wanted.empty()) {
    running = Program::Start(program, {wanted.front()},
                             {.output = ProgramStreams::Output::ToError, .file = "", .hasInput = false});
    wanted.pop_front();
  }
  const auto end = running ? running->Poll() : std::nullopt;
  if (end) running.reset();
  return end;
}

}  // namespace quorl::cli
