// The queue behind a host window. Threads of the library put messages in, the window's own thread takes them out and
// calls the host's procedure, always outside the lock: the procedure may post, send, destroy its own window or block.
#include "platform/window_queue.h"

#include <algorithm>
#include <utility>

namespace quorl {

namespace {

// A host that is slow to show file names must lose names, never a status.
constexpr size_t MAX_QUEUED = 10'000;

// Statuses alone can pile up too, when datagrams that cause one each flood a host that has stopped handling them.
constexpr size_t MAX_QUEUED_STATUSES = 100'000;

bool IsFileName(const HostMessage& message) {
  return message.number == WM_FILE_NAME;
}

}  // namespace

QuorlWindow WindowQueue::Create(QuorlWindowProc proc, void* context) {
  if (!proc) return nullptr;
  const auto window = std::make_shared<Window>();
  window->proc = proc;
  window->context = context;
  window->wakeUp = threads.MakeEvent();
  if (!window->wakeUp) return nullptr;

  uintptr_t number = 0;
  {
    const std::lock_guard lock(mutex);
    number = ++lastNumber;
  }
  auto thread = threads.Start("quorl-window", Priority::Normal, [this, number, window] { Run(number, *window); });
  if (!thread) return nullptr;

  const std::lock_guard lock(mutex);
  window->thread = std::move(thread);
  windows.emplace(number, window);
  return reinterpret_cast<QuorlWindow>(number);
}

void WindowQueue::Destroy(QuorlWindow handle) {
  WindowPtr window;
  std::deque<Item> dropped;
  {
    const std::lock_guard lock(mutex);
    window = Find(handle);
    if (!window) return;
    window->destroyed = true;
    window->queuedFileNames = 0;
    dropped.swap(window->queue);
    if (window->runningHandled) window->runningHandled->Set();
  }
  for (const Item& item : dropped)
    if (item.handled) item.handled->Set();
  window->wakeUp->Set();
  window->thread->WaitForEnd(FOREVER);  // Answers at once on the window's own thread.
}

bool WindowQueue::IsWindow(QuorlWindow handle) {
  const std::lock_guard lock(mutex);
  const WindowPtr window = Find(handle);
  return window && !window->destroyed;
}

bool WindowQueue::Post(QuorlWindow handle, HostMessage message) {
  const std::lock_guard lock(mutex);
  const WindowPtr window = Find(handle);
  if (!window || window->destroyed) return true;
  const bool hadRoom = window->queue.size() < MAX_QUEUED;
  if (window->MakeRoom(message)) Enqueue(*window, {std::move(message), nullptr});
  return hadRoom;
}

void WindowQueue::Send(QuorlWindow handle, HostMessage message) {
  // Without an event there is nothing to wait on; the message then arrives like a posted one.
  const std::shared_ptr<Event> handled = threads.MakeEvent();
  WindowPtr window;
  bool direct = false;
  {
    const std::lock_guard lock(mutex);
    window = Find(handle);
    if (!window || window->destroyed) return;
    direct = window->thread->IsCurrent();
    if (!direct) Enqueue(*window, {message, handled});
  }
  if (direct)
    window->Deliver(message);
  else if (handled)
    handled->Wait(FOREVER);
}

void WindowQueue::Run(uintptr_t number, Window& window) {
  Item item;
  while (Next(window, item)) {
    window.Deliver(item.message);
    const std::lock_guard lock(mutex);
    if (item.handled) item.handled->Set();
    window.runningHandled = nullptr;
  }
  const std::lock_guard lock(mutex);
  windows.erase(number);
}

/// Waits for the next message; false when the window has been destroyed.
bool WindowQueue::Next(Window& window, Item& item) {
  while (true) {
    {
      const std::lock_guard lock(mutex);
      if (window.destroyed) return false;
      if (!window.queue.empty()) {
        item = window.Pop();
        window.runningHandled = item.handled;
        return true;
      }
      window.wakeUp->Reset();
    }
    window.wakeUp->Wait(FOREVER);
  }
}

WindowQueue::WindowPtr WindowQueue::Find(QuorlWindow window) const {
  const auto found = windows.find(reinterpret_cast<uintptr_t>(window));
  return found == windows.end() ? nullptr : found->second;
}

void WindowQueue::Enqueue(Window& window, Item item) {
  window.Push(std::move(item));
  window.wakeUp->Set();
}

void WindowQueue::Window::Deliver(const HostMessage& message) const {
  const intptr_t lParam = message.text ? reinterpret_cast<intptr_t>(message.text->c_str()) : message.lParam;
  proc(context, message.number, message.wParam, lParam);
}

/// Whether `incoming` may be queued, after the oldest file name has made room for it where that was needed.
bool WindowQueue::Window::MakeRoom(const HostMessage& incoming) {
  if (queue.size() < MAX_QUEUED) return true;
  if (IsFileName(incoming)) return false;
  if (queuedFileNames == 0) return queue.size() < MAX_QUEUED_STATUSES;
  queue.erase(std::find_if(queue.begin(), queue.end(), IsDroppable));
  --queuedFileNames;
  return true;
}

void WindowQueue::Window::Push(Item item) {
  if (IsDroppable(item)) ++queuedFileNames;
  queue.push_back(std::move(item));
}

WindowQueue::Item WindowQueue::Window::Pop() {
  Item item = std::move(queue.front());
  queue.pop_front();
  if (IsDroppable(item)) --queuedFileNames;
  return item;
}

/// A sent file name stays: its sender waits for it.
bool WindowQueue::Window::IsDroppable(const Item& item) {
  return IsFileName(item.message) && !item.handled;
}

}  // namespace quorl
