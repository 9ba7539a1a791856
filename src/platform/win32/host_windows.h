#pragma once

#include <quorl/host.h>

#include <map>
#include <memory>
#include <mutex>

#include "platform/win32/threads.h"

namespace quorl {

/// Windows for hosts that have none: nothing of them shows, and each has a thread that handles its messages. They are
/// windows of the system, so messages reach them as they reach any other. Any thread may use it.
class HostWindows {
 public:
  explicit HostWindows(Threads& threads) : threads(threads) {}

  /// nullptr when `proc` is null or the window cannot be made.
  QuorlWindow Create(QuorlWindowProc proc, void* context);

  /// Drops what is queued and waits for a running procedure, unless called from it.
  void Destroy(QuorlWindow window);

 private:
  struct Window;

  Threads& threads;
  std::mutex mutex;
  std::map<QuorlWindow, std::shared_ptr<Window>> windows;
};

}  // namespace quorl
