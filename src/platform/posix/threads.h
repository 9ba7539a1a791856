#pragma once

#include <mutex>

#include "platform/posix/descriptor.h"
#include "platform/threads.h"

namespace quorl {

/// An event with a descriptor that is readable while the event is set, so that a socket can be waited for beside it.
class PosixEvent : public Event {
 public:
  explicit PosixEvent(Descriptor descriptor) : descriptor(std::move(descriptor)) {}

  /// nullptr when the process has no descriptor left.
  static std::shared_ptr<PosixEvent> Make();

  void Set() override;
  void Reset() override;
  bool IsSet() override;
  bool Wait(Duration limit) override;

  int PollDescriptor() const { return descriptor.Get(); }

 private:
  const Descriptor descriptor;
  std::mutex mutex;  // Holds the flag and the descriptor together.
  bool set = false;
};

class PosixThreads : public Threads {
 public:
  std::shared_ptr<Event> MakeEvent() override { return PosixEvent::Make(); }
  std::shared_ptr<Thread> Start(const char* name, Priority priority, std::function<void()> body) override;
};

}  // namespace quorl
