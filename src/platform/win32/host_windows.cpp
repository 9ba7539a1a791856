#include "platform/win32/host_windows.h"

#include <atomic>

#include "platform/windows.h"

namespace quorl {

struct HostWindows::Window {
  QuorlWindowProc proc = nullptr;
  void* context = nullptr;
  std::shared_ptr<Win32Event> made;
  std::shared_ptr<Win32Event> closing;
  std::shared_ptr<Thread> thread;
  HWND handle = nullptr;

  void Run();

 private:
  static LRESULT CALLBACK Procedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam);
  bool Make();
  bool HandleNext() const;
};

LRESULT CALLBACK HostWindows::Window::Procedure(HWND handle, UINT message, WPARAM wParam, LPARAM lParam) {
  const auto* window = reinterpret_cast<const Window*>(GetWindowLongPtrW(handle, GWLP_USERDATA));
  const bool isOurs =
      message == WM_TASK_INFO || message == WM_TRANS_STATUS || message == WM_FILE_NAME || message == WM_CLIENT_ERR;
  if (!isOurs) return DefWindowProcW(handle, message, wParam, lParam);
  if (!window->closing->IsSet()) window->proc(window->context, message, wParam, lParam);
  return 0;
}

/// A window of a class that the system has: a class of our own would outlive the library.
bool HostWindows::Window::Make() {
  handle = CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  if (!handle) return false;
  SetWindowLongPtrW(handle, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  SetWindowLongPtrW(handle, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Procedure));
  return true;
}

/// False when there was none.
bool HostWindows::Window::HandleNext() const {
  MSG message{};
  if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) return false;
  DispatchMessageW(&message);
  return true;
}

void HostWindows::Window::Run() {
  const bool isThere = Make();
  made->Set();
  if (!isThere) return;
  const HANDLE closed = closing->WaitHandle();
  while (!closing->IsSet())
    if (!HandleNext()) MsgWaitForMultipleObjectsEx(1, &closed, INFINITE, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
  DestroyWindow(handle);
}

QuorlWindow HostWindows::Create(QuorlWindowProc proc, void* context) {
  const auto window = std::make_shared<Window>();
  window->proc = proc;
  window->context = context;
  window->made = Win32Event::Make();
  window->closing = Win32Event::Make();
  if (!proc || !window->made || !window->closing) return nullptr;
  window->thread = threads.Start("quorl-window", Priority::Normal, [window] { window->Run(); });
  if (!window->thread) return nullptr;
  window->made->Wait(FOREVER);
  if (!window->handle) return nullptr;
  const std::lock_guard lock(mutex);
  windows.emplace(window->handle, window);
  return window->handle;
}

void HostWindows::Destroy(QuorlWindow handle) {
  std::shared_ptr<Window> window;
  {
    const std::lock_guard lock(mutex);
    const auto found = windows.find(handle);
    if (found == windows.end()) return;
    window = found->second;
    windows.erase(found);
  }
  window->closing->Set();
  window->thread->WaitForEnd(FOREVER);  // Answers at once on the window's own thread.
}

}  // namespace quorl
