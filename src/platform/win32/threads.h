#pragma once

#include "platform/threads.h"
#include "platform/win32/handle.h"

namespace quorl {

class Win32Event : public Event {
 public:
  explicit Win32Event(Handle handle) : handle(std::move(handle)) {}

  /// nullptr when the system has none left.
  static std::shared_ptr<Win32Event> Make();

  void Set() override { SetEvent(handle.Get()); }
  void Reset() override { ResetEvent(handle.Get()); }
  bool IsSet() override { return WaitForSingleObject(handle.Get(), 0) == WAIT_OBJECT_0; }
  bool Wait(Duration limit) override;

  HANDLE WaitHandle() const { return handle.Get(); }

 private:
  const Handle handle;
};

class Win32Threads : public Threads {
 public:
  std::shared_ptr<Event> MakeEvent() override { return Win32Event::Make(); }
  std::shared_ptr<Thread> Start(const char* name, Priority priority, std::function<void()> body) override;
};

}  // namespace quorl
