#pragma once

#include <functional>
#include <memory>

#include "platform/time.h"

namespace quorl {

/// A flag that threads can wait for. It stays set until Reset. Any thread may use it.
class Event {
 public:
  virtual ~Event() = default;
  virtual void Set() = 0;
  virtual void Reset() = 0;
  virtual bool IsSet() = 0;

  /// True once the event is set; false when `limit` (0 to FOREVER) ran out first.
  virtual bool Wait(Duration limit) = 0;
};

/// A started thread. Letting go of the handle does not stop the thread.
class Thread {
 public:
  virtual ~Thread() = default;

  /// Whether the caller is this thread.
  virtual bool IsCurrent() const = 0;

  /// True once the thread has ended; false when `limit` ran out first or the caller is the thread itself.
  virtual bool WaitForEnd(Duration limit) = 0;
};

enum class Priority {
  Normal,
  AboveNormal,  ///< One step above normal where the process may do that; normal otherwise.
};

class Threads {
 public:
  virtual ~Threads() = default;

  /// nullptr when the machine cannot make one.
  virtual std::shared_ptr<Event> MakeEvent() = 0;

  /// Starts a thread that runs `body`. `name` has at most 15 characters and shows in system tools. What `body` holds
  /// is destroyed when it has returned. nullptr when the thread cannot be created.
  virtual std::shared_ptr<Thread> Start(const char* name, Priority priority, std::function<void()> body) = 0;
};

}  // namespace quorl
