// Messages to the host's windows, from every thread of the library. A posted message must not wait for the host, which
// may be in the middle of InitServer, waiting for the library.
#include "platform/win32/windows.h"

#include "platform/win32/system.h"

namespace quorl {

namespace {

// The system queues 10 000 posted messages for a thread. The one being handled is no longer counted, and an
// administrator may have raised the bound.
constexpr size_t TEXTS_KEPT = 20'000;

HWND HandleOf(QuorlWindow window) {
  return static_cast<HWND>(window);
}

LPARAM PointerTo(const char* text) {
  return reinterpret_cast<LPARAM>(text);
}

}  // namespace

bool Win32Windows::IsWindow(QuorlWindow window) {
  return window && ::IsWindow(HandleOf(window));
}

bool Win32Windows::Post(QuorlWindow window, HostMessage message) {
  // Without a window a message would go to the calling thread's own queue.
  if (!IsWindow(window)) return true;
  const LPARAM lParam = message.text ? PointerTo(Keep(window, *message.text)) : message.lParam;
  if (PostMessageA(HandleOf(window), message.number, message.wParam, lParam)) return true;
  // The queue is full, or the window is gone. A name of a file may be lost, a status takes the way that has no bound,
  // on which it overtakes what is queued.
  if (message.number == WM_FILE_NAME) return !IsWindow(window);
  SendNotifyMessageA(HandleOf(window), message.number, message.wParam, lParam);
  return true;
}

void Win32Windows::Send(QuorlWindow window, HostMessage message) {
  if (!IsWindow(window)) return;
  const LPARAM lParam = message.text ? PointerTo(message.text->c_str()) : message.lParam;
  SendMessageA(HandleOf(window), message.number, message.wParam, lParam);
}

const char* Win32Windows::Keep(QuorlWindow window, const std::string& text) {
  const std::lock_guard lock(mutex);
  const auto found = posted.find(window);
  if (found != posted.end()) return found->second.Keep(text);
  // A host makes new windows seldom; that is the time to let the texts of destroyed ones go.
  std::erase_if(posted, [](const auto& each) { return !::IsWindow(HandleOf(each.first)); });
  return posted.try_emplace(window, TEXTS_KEPT).first->second.Keep(text);
}

}  // namespace quorl
