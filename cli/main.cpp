#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string_view>

#include "cli/demo.h"
#include "cli/doctor.h"
#include "cli/list.h"
#include "cli/option_table.h"
#include "cli/receive.h"
#include "cli/send.h"

namespace {

using namespace quorl::cli;

int Run(const Options& options, Reporter& reporter) {
  switch (options.command) {
    case Command::Send: return RunSend(options, reporter);
    case Command::Receive: return RunReceive(options, reporter);
    case Command::Demo: return RunDemo(options, reporter);
    case Command::List: return RunList(options, reporter);
    case Command::Doctor: return RunDoctor(options, reporter);
    case Command::None: break;
  }
  return static_cast<int>(Exit::Other);
}

/// Runs what can fail; tells why it did.
template <class Action>
int Guarded(Reporter& reporter, const Action& action) {
  try {
    return action();
  } catch (const Failure& failure) {
    reporter.Complain(failure);
    return static_cast<int>(failure.code);
  } catch (const std::exception& error) {
    reporter.Complain({Exit::Other, "the command ended itself", error.what(), {}});
    return static_cast<int>(Exit::Other);
  }
}

/// A program that asked for JSON gets it also when the rest of its command line was wrong.
OutputOptions OutputOfWrongUse(int argumentCount, char** arguments) {
  OutputOptions output;
  output.json = std::any_of(arguments, arguments + argumentCount,
                            [](std::string_view word) { return word == "--json" || word == "-j"; });
  return output;
}

const char* NameOf(Command command) {
  auto rows = CommandRows();
  auto row = std::find_if(rows.begin(), rows.end(), [command](const auto& one) { return one.command == command; });
  return row == rows.end() ? "" : row->name;
}

}  // namespace

int main(int argc, char** argv) {
  // Whoever reads the output may leave; the transfer goes on.
  std::signal(SIGPIPE, SIG_IGN);
  Invocation invocation;
  std::optional<Failure> wrongUse;
  try {
    invocation = ParseCommandLine(argc, argv);
  } catch (const Failure& failure) {
    wrongUse = failure;
    invocation.options.output = OutputOfWrongUse(argc, argv);
  }
  const Options& options = invocation.options;
  if (options.command == Command::None && !wrongUse) {
    std::fputs(invocation.text.c_str(), stdout);
    return 0;
  }
  Reporter reporter(options.output, NameOf(options.command));
  return reporter.End(Guarded(reporter, [&] {
    if (wrongUse) throw Failure(*wrongUse);
    reporter.OpenLog();
    return Run(options, reporter);
  }));
}
