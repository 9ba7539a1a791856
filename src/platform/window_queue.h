#pragma once

#include <quorl/host.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "platform/threads.h"
#include "platform/windows.h"

namespace quorl {

/// Host windows for machines that have none of their own: each is a queue of messages and one thread that hands them to
/// the host's procedure, one at a time, in order. A handle is a number that is never given out twice, so a handle that
/// outlives its window reaches nobody. Any thread may use it. Must outlive the threads of its windows.
class WindowQueue : public Windows {
 public:
  explicit WindowQueue(Threads& threads) : threads(threads) {}

  /// nullptr when `proc` is null or the window's thread cannot be started.
  QuorlWindow Create(QuorlWindowProc proc, void* context);

  /// Drops what is queued, lets waiting senders go, and waits for a running procedure, unless called from it.
  void Destroy(QuorlWindow window);

  bool IsWindow(QuorlWindow window) override;
  bool Post(QuorlWindow window, HostMessage message) override;

  /// From the window's own thread the procedure is called at once, within the one that is running.
  void Send(QuorlWindow window, HostMessage message) override;

 private:
  struct Item {
    HostMessage message;
    std::shared_ptr<Event> handled;  // Set when a sent message needs its sender no longer; null for a posted one.
  };

  struct Window {
    QuorlWindowProc proc = nullptr;
    void* context = nullptr;
    std::shared_ptr<Event> wakeUp;
    std::shared_ptr<Thread> thread;
    std::deque<Item> queue;
    size_t queuedFileNames = 0;
    std::shared_ptr<Event> runningHandled;  // Of the message that the procedure is handling.
    bool destroyed = false;

    void Deliver(const HostMessage& message) const;
    bool MakeRoom(const HostMessage& incoming);
    void Push(Item item);
    Item Pop();
    static bool IsDroppable(const Item& item);
  };
  using WindowPtr = std::shared_ptr<Window>;

  void Run(uintptr_t number, Window& window);
  bool Next(Window& window, Item& item);
  WindowPtr Find(QuorlWindow window) const;
  void Enqueue(Window& window, Item item);

  Threads& threads;
  std::mutex mutex;  // Guards everything below and what every window holds.
  uintptr_t lastNumber = 0;
  std::map<uintptr_t, WindowPtr> windows;  // A destroyed one stays until its thread has ended.
};

}  // namespace quorl
