#include "cli/system/program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string_view>

#include "cli/system/posix/error.h"
#include "cli/system/posix/program.h"
#include "platform/posix/descriptor.h"

namespace quorl::cli {
namespace {

/// The descriptors of a program to be started, in the order in which they are to be set up.
class Actions {
 public:
  Actions() { posix_spawn_file_actions_init(&actions); }
  ~Actions() { posix_spawn_file_actions_destroy(&actions); }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;

  void Open(int number, const char* path, int flags) {
    posix_spawn_file_actions_addopen(&actions, number, path, flags, 0600);
  }
  void Copy(int from, int number) { posix_spawn_file_actions_adddup2(&actions, from, number); }
  const posix_spawn_file_actions_t* Get() const { return &actions; }

 private:
  posix_spawn_file_actions_t actions{};
};

/// 0 and the process, or an errno.
int Spawn(const std::string& program, std::vector<std::string> arguments, const Actions& actions, pid_t& process) {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  // This process blocks those that Waiter takes, and ignores the one of PrepareStreams.
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigaddset(&signals, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  arguments.insert(arguments.begin(), program);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  const int error = posix_spawnp(&process, program.c_str(), actions.Get(), &attributes, pointers.data(), environ);
  posix_spawnattr_destroy(&attributes);
  return error;
}

ProgramEnd EndOf(int status) {
  if (WIFSIGNALED(status)) return {.signal = WTERMSIG(status), .notStarted = {}};
  return {.exitCode = WEXITSTATUS(status), .notStarted = {}};
}

}  // namespace

struct Program::State {
  pid_t process = -1;  ///< -1: it has ended.
};

Program Program::Start(const std::string& program, const std::vector<std::string>& arguments,
                       const ProgramStreams& streams) {
  Actions actions;
  if (!streams.hasInput) actions.Open(STDIN_FILENO, "/dev/null", O_RDONLY);
  if (streams.output == ProgramStreams::Output::ToError) actions.Copy(STDERR_FILENO, STDOUT_FILENO);
  if (streams.output == ProgramStreams::Output::ToFile) {
    actions.Open(STDOUT_FILENO, streams.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC);
    actions.Copy(STDOUT_FILENO, STDERR_FILENO);
  }
  Program started;
  pid_t process = -1;
  if (const int error = Spawn(program, arguments, actions, process); error != 0) {
    started.notStarted = ErrorOf(error);
  } else {
    started.state = std::make_shared<State>(State{process});
  }
  return started;
}

std::optional<ProgramEnd> Program::Poll() {
  int status = 0;
  if (notStarted) return ProgramEnd{.notStarted = std::exchange(notStarted, {})};
  if (!state || state->process < 0 || waitpid(state->process, &status, WNOHANG) != state->process) return std::nullopt;
  state->process = -1;
  return EndOf(status);
}

ProgramEnd Program::Wait() {
  int status = 0;
  if (!state || state->process < 0) return {.notStarted = notStarted};
  while (waitpid(state->process, &status, 0) < 0 && errno == EINTR) {
  }
  state->process = -1;
  return EndOf(status);
}

void Program::Interrupt() const {
  if (state && state->process > 0) kill(state->process, SIGINT);
}

void Program::Terminate() const {
  if (state && state->process > 0) kill(state->process, SIGTERM);
}

std::optional<std::string> OutputOf(const std::string& program, const std::vector<std::string>& arguments) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  Actions actions;
  actions.Copy(writing.Get(), STDOUT_FILENO);
  actions.Open(STDERR_FILENO, "/dev/null", O_WRONLY);
  pid_t process = -1;
  if (Spawn(program, arguments, actions, process) != 0) return std::nullopt;
  writing.Close();
  std::string output;
  std::array<char, 4096> part{};
  for (ssize_t count = 1; count > 0 || (count < 0 && errno == EINTR);) {
    count = read(reading.Get(), part.data(), part.size());
    if (count > 0) output.append(part.data(), static_cast<size_t>(count));
  }
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? std::optional(output) : std::nullopt;
}

SystemError WhyNotRunnable(const std::string& program) {
  if (program.find('/') != std::string::npos) return access(program.c_str(), X_OK) == 0 ? SystemError() : LastError();
  const char* const listed = std::getenv("PATH");
  std::istringstream directories(listed != nullptr ? listed : "");
  for (std::string directory; std::getline(directories, directory, ':');) {
    if (access((std::filesystem::path(directory) / program).c_str(), X_OK) == 0) return {};
  }
  errno = ENOENT;
  return LastError();
}

std::string OwnProgram() {
  return "/proc/self/exe";
}

std::string FileOpener() {
  return "xdg-open";
}

}  // namespace quorl::cli
