// One queue for the library's messages, which the window's thread hands over, and for signals.
#include "cli/inbox.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

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
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace

Inbox::Inbox(bool everyFile) : everyFile(everyFile) {
  sigset_t set = StopSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signals = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  wakeUp = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
  window = CreateHostWindow(&Inbox::Receive, this);
}

Inbox::~Inbox() {
  DestroyHostWindow(window);
  close(wakeUp);
  close(signals);
}

void Inbox::Renew() {
  DestroyHostWindow(window);
  eventfd_t count = 0;
  while (eventfd_read(wakeUp, &count) == 0) {
  }
  messages.clear();
  currentFile.clear();
  filesBefore = 0;
  window = CreateHostWindow(&Inbox::Receive, this);
}

void Inbox::Receive(void* context, uint32_t message, uintptr_t wParam, intptr_t lParam) {
  auto* inbox = static_cast<Inbox*>(context);
  std::lock_guard guard(inbox->lock);
  Event event{.kind = Event::Kind::Message, .message = message, .wParam = wParam, .lParam = lParam, .text = {}};
  if (message == WM_FILE_NAME) {
    // One for every block: only a change is of interest.
    std::string name = reinterpret_cast<const char*>(lParam);
    if (name == inbox->currentFile) return;
    if (!inbox->currentFile.empty()) ++inbox->filesBefore;
    inbox->currentFile = name;
    if (!inbox->everyFile) return;
    event.kind = Event::Kind::File;
    event.text = std::move(name);
  }
  if (message == WM_TRANS_STATUS && lParam != 0 && lParam != 1) event.text = reinterpret_cast<const char*>(lParam);
  inbox->messages.push_back(std::move(event));
  eventfd_write(inbox->wakeUp, 1);
}

bool Inbox::TakeMessage(Event& event) {
  eventfd_t count = 0;
  if (eventfd_read(wakeUp, &count) != 0) return false;
  std::lock_guard guard(lock);
  event = std::move(messages.front());
  messages.pop_front();
  return true;
}

Event Inbox::Next(std::chrono::milliseconds limit) {
  return Wait(limit, false);
}

Event Inbox::NextOrKey(std::chrono::milliseconds limit) {
  return Wait(limit, true);
}

Event Inbox::Wait(std::chrono::milliseconds limit, bool keys) {
  std::array<pollfd, 3> waited{pollfd{signals, POLLIN, 0}, pollfd{wakeUp, POLLIN, 0},
                               pollfd{keys ? STDIN_FILENO : -1, POLLIN, 0}};
  Event event;
  if (poll(waited.data(), waited.size(), static_cast<int>(limit.count())) <= 0) return event;
  signalfd_siginfo info{};
  if (read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    RestoreDefaultAction();
    event.kind = Event::Kind::Signal;
    event.signal = static_cast<int>(info.ssi_signo);
    return event;
  }
  if (TakeMessage(event) || waited[2].revents == 0) return event;
  event.kind = Event::Kind::Key;
  if (read(STDIN_FILENO, &event.key, 1) != 1) event.key = END_OF_INPUT;
  return event;
}

std::string Inbox::CurrentFile() {
  std::lock_guard guard(lock);
  return currentFile;
}

uint64_t Inbox::FilesBefore() {
  std::lock_guard guard(lock);
  return filesBefore;
}

}  // namespace quorl::cli
