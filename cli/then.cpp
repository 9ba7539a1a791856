// Programs that follow a transfer. Nothing that came over the network gets into their arguments or environment, but for
// the name of a file that --open was given for.
#include "cli/then.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "cli/escape.h"
#include "cli/outcome.h"

namespace quorl::cli {
namespace {

/// Found like a shell would. On failure `error` is an errno.
std::optional<pid_t> StartProgram(const std::string& program, const std::string& argument, int& error) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  // This process blocks some signals and ignores another.
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&signals, number);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  std::string first = program;
  std::string second = argument;
  const std::array<char*, 3> arguments{first.data(), second.data(), nullptr};
  pid_t process = 0;
  error = posix_spawnp(&process, program.c_str(), &actions, &attributes, arguments.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? std::optional(process) : std::nullopt;
}

}  // namespace

std::string InWords(const ProgramEnd& end) {
  if (end.startError != 0) return fmt::format("could not be started: {}", std::strerror(end.startError));
  if (end.signal != 0) return fmt::format("was ended by signal {}", end.signal);
  return fmt::format("ended with exit code {}", end.exitCode);
}

FollowUp::FollowUp(const std::string& program) : program(program) {
  if (program.find('/') == std::string::npos || access(program.c_str(), X_OK) == 0) return;
  throw Failure{Exit::LocalFiles,
                fmt::format("\"{}\" cannot be run", Escape(program)),
                std::strerror(errno),
                {"--then takes the path of one program, or its name where PATH leads to it."}};
}

std::optional<ProgramEnd> FollowUp::Poll() {
  int status = 0;
  if (process && waitpid(*process, &status, WNOHANG) == *process) {
    process.reset();
    return WIFSIGNALED(status) ? ProgramEnd{.signal = WTERMSIG(status)} : ProgramEnd{.exitCode = WEXITSTATUS(status)};
  }
  if (wanted.empty() || process) return std::nullopt;
  int error = 0;
  process = StartProgram(program, wanted.front(), error);
  wanted.pop_front();
  return process ? std::nullopt : std::optional(ProgramEnd{.startError = error});
}

}  // namespace quorl::cli
