#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>
#include <string_view>

#include "cli/commands/demo.h"
#include "cli/commands/doctor.h"
#include "cli/commands/list.h"
#include "cli/commands/receive.h"
#include "cli/commands/send.h"
#include "cli/options/table.h"
#include "cli/show/escape.h"
#include "cli/system/files.h"
#include "cli/system/memory.h"
#include "cli/system/terminal.h"

namespace {

using namespace quorl::cli;

int Run(const Options& options, Reporter& reporter) {
  switch (options.verb) {
    case Verb::Send: return RunSend(options, reporter);
    case Verb::Receive: return RunReceive(options, reporter);
    case Verb::Demo: return RunDemo(options, reporter);
    case Verb::List: return RunList(options, reporter);
    case Verb::Doctor: return RunDoctor(options, reporter);
    case Verb::None: break;
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

void WarnOfOpenKey(const std::string& keyFile, Reporter& reporter) {
  if (keyFile.empty() || !IsReadByEveryone(keyFile)) return;
  reporter.Warn(fmt::format("everybody on this machine can read \"{}\"; a key is a secret: {}", Escape(keyFile),
                            Escape(CommandToHide(keyFile))));
}

const char* NameOf(Verb verb) {
  auto rows = CommandRows();
  auto row = std::find_if(rows.begin(), rows.end(), [verb](const auto& one) { return one.verb == verb; });
  return row == rows.end() ? "" : row->name;
}

}  // namespace

int main(int argc, char** argv) {
  // The transfer goes on without those who read the output.
  PrepareStreams();
  KeepMemorySmall();
  Invocation invocation;
  std::optional<Failure> wrongUse;
  try {
    invocation = ParseCommandLine(argc, argv);
  } catch (const Failure& failure) {
    wrongUse = failure;
    invocation.options.output = OutputOfWrongUse(argc, argv);
  }
  const Options& options = invocation.options;
  if (options.verb == Verb::None && !wrongUse) {
    std::fputs(invocation.text.c_str(), stdout);
    return 0;
  }
  Reporter reporter(options.output, NameOf(options.verb));
  return reporter.End(Guarded(reporter, [&] {
    if (wrongUse) throw Failure(*wrongUse);
    reporter.Open();
    WarnOfOpenKey(options.keyFile, reporter);
    return Run(options, reporter);
  }));
}
