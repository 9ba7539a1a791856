#include "cli/system/waiting.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>

#include "cli/system/restore.h"
#include "platform/win32/handle.h"
#include "platform/win32/waiting.h"

namespace quorl::cli {
namespace {

// As other systems number them; this one has the first alone, and only within a process.
constexpr int INTERRUPT = 2;
constexpr int HANG_UP = 1;
constexpr wchar_t CONTROL_Z = 26;

// For the thread that the system makes when the console has something to say; the process has one Waiter.
std::atomic<HANDLE> stopRequested{nullptr};
std::atomic<int> stopSignal{0};

BOOL WINAPI OnControl(DWORD event) {
  const bool isKey = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
  stopSignal = isKey ? INTERRUPT : HANG_UP;
  SetEvent(stopRequested);
  // The window is closing, or the session ends: when this returns the process is ended as it is, so it has to end
  // first.
  if (!isKey) ::Sleep(INFINITE);
  return TRUE;
}

/// The next key that is pressed; 0 when what has come is none.
char TakeKey(HANDLE console) {
  INPUT_RECORD record{};
  DWORD count = 0;
  if (!ReadConsoleInputW(console, &record, 1, &count)) return END_OF_INPUT;
  if (count == 0 || record.EventType != KEY_EVENT || !record.Event.KeyEvent.bKeyDown) return 0;
  const wchar_t key = record.Event.KeyEvent.uChar.UnicodeChar;
  if (key == CONTROL_Z) return END_OF_INPUT;
  return key < 0x80 ? static_cast<char>(key) : '?';
}

}  // namespace

struct Waiter::State {
  Handle calls{CreateSemaphoreW(nullptr, 0, LONG_MAX, nullptr)};
  Handle stop{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
};

Waiter::Waiter() : state(std::make_unique<State>()) {
  stopRequested = state->stop.Get();
  SetConsoleCtrlHandler(OnControl, TRUE);
}

Waiter::~Waiter() {
  SetConsoleCtrlHandler(OnControl, FALSE);
}

void Waiter::Call() {
  ReleaseSemaphore(state->calls.Get(), 1, nullptr);
}

void Waiter::ForgetCalls() {
  while (WaitForSingleObject(state->calls.Get(), 0) == WAIT_OBJECT_0) {
  }
}

Woken Waiter::Wait(std::chrono::milliseconds limit, bool keys) {
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  // What is no console cannot be waited for; nobody is asked then.
  const DWORD count = keys && GetConsoleMode(input, &mode) ? 3 : 2;
  const std::array<HANDLE, 3> waited{state->stop.Get(), state->calls.Get(), input};
  const Moment deadline = DeadlineAfter(limit);
  while (true) {
    const DWORD woken = WaitForMultipleObjects(count, waited.data(), FALSE, MillisecondsUntil(deadline));
    if (woken == WAIT_OBJECT_0) {
      RestoreTerminal();
      // A window that closes says it once, and nobody closes it in impatience.
      if (stopSignal == INTERRUPT) SetConsoleCtrlHandler(OnControl, FALSE);
      return {.by = Woken::By::Signal, .signal = stopSignal};
    }
    if (woken == WAIT_OBJECT_0 + 1) return {.by = Woken::By::Call};
    // A console tells of its mouse and of keys that are let go too.
    const char key = woken == WAIT_OBJECT_0 + 2 ? TakeKey(input) : '\0';
    if (key != 0) return {.by = Woken::By::Key, .key = key};
    if (woken != WAIT_OBJECT_0 + 2 && MonotonicNow() >= deadline) return {};
    if (woken == WAIT_FAILED) return {};
  }
}

}  // namespace quorl::cli
