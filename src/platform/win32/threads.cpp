// Threads tell their end by an event, as a bounded wait for one may run out and nobody comes back for it then. Each
// holds the module that its code lies in: a host may unload the library at any time, and the library stays until the
// last thread has left it.
#include "platform/win32/threads.h"

#include <process.h>

#include <string>

#include "platform/win32/waiting.h"

namespace quorl {

std::shared_ptr<Win32Event> Win32Event::Make() {
  Handle handle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  return handle ? std::make_shared<Win32Event>(std::move(handle)) : nullptr;
}

bool Win32Event::Wait(Duration limit) {
  const Moment deadline = DeadlineAfter(limit);
  while (WaitForSingleObject(handle.Get(), MillisecondsUntil(deadline)) != WAIT_OBJECT_0)
    if (MonotonicNow() >= deadline) return IsSet();
  return true;
}

namespace {

struct ThreadState {
  std::string name;
  std::function<void()> body;
  std::shared_ptr<Win32Event> ended;
  DWORD identifier = 0;
  HMODULE module = nullptr;
};

class Win32Thread : public Thread {
 public:
  explicit Win32Thread(std::shared_ptr<ThreadState> state) : state(std::move(state)) {}

  // Identifiers are given out again, but not before the thread has ended.
  bool IsCurrent() const override { return state->identifier == GetCurrentThreadId() && !state->ended->IsSet(); }
  bool WaitForEnd(Duration limit) override { return !IsCurrent() && state->ended->Wait(limit); }

 private:
  const std::shared_ptr<ThreadState> state;
};

/// Only newer systems can name a thread.
void ShowName(const std::string& name) {
  using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
  const HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  const auto set = reinterpret_cast<SetDescription>(
      reinterpret_cast<void*>(kernel ? GetProcAddress(kernel, "SetThreadDescription") : nullptr));
  if (set) set(GetCurrentThread(), std::wstring(name.begin(), name.end()).c_str());
}

/// Everything but the return: what a function owns must be gone before FreeLibraryAndExitThread, which never returns.
HMODULE RunBody(void* argument) {
  const std::unique_ptr<std::shared_ptr<ThreadState>> owned(static_cast<std::shared_ptr<ThreadState>*>(argument));
  ThreadState& state = **owned;
  ShowName(state.name);
  state.body();
  // Who waits for the end may rely on it that nothing that the body held is in use any more.
  state.body = nullptr;
  const HMODULE module = state.module;
  state.ended->Set();
  return module;
}

unsigned __stdcall RunThread(void* argument) {
  FreeLibraryAndExitThread(RunBody(argument), 0);
}

HMODULE HoldOwnModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&RunThread), &module);
  return module;
}

}  // namespace

std::shared_ptr<Thread> Win32Threads::Start(const char* name, Priority priority, std::function<void()> body) {
  const auto state = std::make_shared<ThreadState>();
  state->name = name;
  state->body = std::move(body);
  state->ended = Win32Event::Make();
  if (!state->ended) return nullptr;
  auto owned = std::make_unique<std::shared_ptr<ThreadState>>(state);
  state->module = HoldOwnModule();
  if (!state->module) return nullptr;
  unsigned identifier = 0;
  const Handle thread(
      reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, RunThread, owned.get(), CREATE_SUSPENDED, &identifier)));
  if (!thread) {
    FreeLibrary(state->module);
    return nullptr;
  }
  owned.release();  // The thread has taken it.
  state->identifier = identifier;
  if (priority == Priority::AboveNormal) SetThreadPriority(thread.Get(), THREAD_PRIORITY_ABOVE_NORMAL);
  ResumeThread(thread.Get());
  return std::make_shared<Win32Thread>(state);
}

}  // namespace quorl
