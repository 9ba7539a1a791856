#include "cli/system/waiting.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <csignal>

#include "cli/system/restore.h"
#include "platform/posix/descriptor.h"

namespace quorl::cli {
namespace {

bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t StopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  // A blocked signal is queued even when it is ignored, and nohup means it.
  if (!IsIgnored(SIGHUP)) sigaddset(&set, SIGHUP);
  return set;
}

/// SIGHUP stays blocked: a closing terminal says it twice, and nobody does so in impatience.
void RestoreDefaultAction() {
  RestoreTerminal();
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace

struct Waiter::State {
  Descriptor calls;    // Counts them.
  Descriptor signals;  // Delivers them.
};

Waiter::Waiter() : state(std::make_unique<State>()) {
  const sigset_t set = StopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  state->signals = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  state->calls = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE));
}

Waiter::~Waiter() = default;

void Waiter::Call() {
  eventfd_write(state->calls.Get(), 1);
}

void Waiter::ForgetCalls() {
  eventfd_t count = 0;
  while (eventfd_read(state->calls.Get(), &count) == 0) {
  }
}

Woken Waiter::Wait(std::chrono::milliseconds limit, bool keys) {
  std::array<pollfd, 3> waited{pollfd{state->signals.Get(), POLLIN, 0}, pollfd{state->calls.Get(), POLLIN, 0},
                               pollfd{keys ? STDIN_FILENO : -1, POLLIN, 0}};
  if (poll(waited.data(), waited.size(), static_cast<int>(limit.count())) <= 0) return {};
  signalfd_siginfo info{};
  if (read(state->signals.Get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    RestoreDefaultAction();
    return {.by = Woken::By::Signal, .signal = static_cast<int>(info.ssi_signo)};
  }
  eventfd_t count = 0;
  if (eventfd_read(state->calls.Get(), &count) == 0) return {.by = Woken::By::Call};
  if (waited[2].revents == 0) return {};
  Woken woken{.by = Woken::By::Key};
  if (read(STDIN_FILENO, &woken.key, 1) != 1) woken.key = END_OF_INPUT;
  return woken;
}

}  // namespace quorl::cli
