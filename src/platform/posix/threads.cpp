// Threads are detached and tell their end by an event: a bounded wait for a thread may run out, and nobody has to come
// back for it then.
#include "platform/posix/threads.h"

#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <cerrno>
#include <string>

#include "platform/posix/waiting.h"

namespace quorl {

std::shared_ptr<PosixEvent> PosixEvent::Make() {
  Descriptor descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  return descriptor ? std::make_shared<PosixEvent>(std::move(descriptor)) : nullptr;
}

void PosixEvent::Set() {
  const std::lock_guard lock(mutex);
  if (set) return;
  set = true;
  eventfd_write(descriptor.Get(), 1);
}

void PosixEvent::Reset() {
  const std::lock_guard lock(mutex);
  if (!set) return;
  set = false;
  eventfd_t value = 0;
  eventfd_read(descriptor.Get(), &value);
}

bool PosixEvent::IsSet() {
  const std::lock_guard lock(mutex);
  return set;
}

bool PosixEvent::Wait(Duration limit) {
  const Moment deadline = DeadlineAfter(limit);
  pollfd readable{descriptor.Get(), POLLIN, 0};
  while (PollUntil({&readable, 1}, deadline)) {
    if (IsSet()) return true;
  }
  return IsSet();
}

namespace {

struct ThreadState {
  std::string name;
  Priority priority = Priority::Normal;
  bool isRaised = false;  ///< Above what is normal in its process; at first, as the thread that starts it.
  std::function<void()> body;
  std::shared_ptr<PosixEvent> ended;
};

thread_local const ThreadState* currentThread = nullptr;

class PosixThread : public Thread {
 public:
  explicit PosixThread(std::shared_ptr<ThreadState> state) : state(std::move(state)) {}
  bool IsCurrent() const override { return currentThread == state.get(); }
  bool WaitForEnd(Duration limit) override { return !IsCurrent() && state->ended->Wait(limit); }

 private:
  const std::shared_ptr<ThreadState> state;
};

// A nice value belongs to one thread on Linux, and a thread inherits that of the one that starts it: of a raised one,
// its raise. Without the privilege to raise itself a thread runs as it is.
void SetPriority(ThreadState& state) {
  const bool wantsRaise = state.priority == Priority::AboveNormal;
  if (wantsRaise == state.isRaised) return;
  const auto thread = static_cast<id_t>(gettid());
  errno = 0;
  const int nice = getpriority(PRIO_PROCESS, thread);
  if (errno == 0 && setpriority(PRIO_PROCESS, thread, nice + (wantsRaise ? -1 : 1)) == 0) state.isRaised = wantsRaise;
}

void* RunThread(void* argument) {
  const std::unique_ptr<std::shared_ptr<ThreadState>> owned(static_cast<std::shared_ptr<ThreadState>*>(argument));
  ThreadState& state = **owned;
  currentThread = &state;
  pthread_setname_np(pthread_self(), state.name.c_str());
  SetPriority(state);
  state.body();
  // Who waits for the end may rely on it that nothing that the body held is in use any more.
  state.body = nullptr;
  state.ended->Set();
  return nullptr;
}

/// Starts the thread with every signal blocked: a host's signals belong to the host's own threads.
bool StartDetached(void* argument) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  const bool started = pthread_create(&thread, &attributes, RunThread, argument) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  return started;
}

}  // namespace

std::shared_ptr<Thread> PosixThreads::Start(const char* name, Priority priority, std::function<void()> body) {
  std::shared_ptr<PosixEvent> ended = PosixEvent::Make();
  if (!ended) return nullptr;
  const auto state = std::make_shared<ThreadState>();
  state->name = name;
  state->priority = priority;
  state->isRaised = currentThread && currentThread->isRaised;
  state->body = std::move(body);
  state->ended = std::move(ended);
  auto owned = std::make_unique<std::shared_ptr<ThreadState>>(state);
  if (!StartDetached(owned.get())) return nullptr;
  owned.release();  // The thread has taken it.
  return std::make_shared<PosixThread>(state);
}

}  // namespace quorl
