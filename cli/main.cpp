#include <cstdio>
#include <exception>

#include "cli/demo.h"
#include "cli/receive.h"
#include "cli/send.h"

namespace {

int Run(const quorl::cli::Invocation& invocation, quorl::cli::Console& console) {
  switch (invocation.command) {
    case quorl::cli::Command::Send: return quorl::cli::RunSend(invocation.send, console);
    case quorl::cli::Command::Receive: return quorl::cli::RunReceive(invocation.receive, console);
    case quorl::cli::Command::Demo: return quorl::cli::RunDemo(console);
    case quorl::cli::Command::None: break;
  }
  std::fputs(invocation.text.c_str(), invocation.exitCode == 0 ? stdout : stderr);
  return invocation.exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  quorl::cli::Console console;
  try {
    return Run(quorl::cli::ParseCommandLine(argc, argv), console);
  } catch (const quorl::cli::Failure& failure) {
    console.Report(failure);
    return static_cast<int>(failure.code);
  } catch (const std::exception& error) {
    console.Report({quorl::cli::Exit::Other, "the command ended itself", error.what(), ""});
    return 1;
  }
}
