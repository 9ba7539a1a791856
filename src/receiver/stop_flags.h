#pragma once

#include <memory>
#include <mutex>

#include "platform/threads.h"

namespace quorl {

/// The two flags that end a receiver's threads, and the event that wakes them from long pauses. Any thread may use it.
class StopFlags {
 public:
  /// False when the machine cannot make the event.
  bool Prepare(Threads& threads) { return (stopped = threads.MakeEvent()) != nullptr; }

  /// The transfer is over for this receiver.
  void SetFinished() { Raise(finishedLock, finished); }

  /// The receiver is being torn down, or could not answer the sender.
  void SetAborted() { Raise(abortedLock, aborted); }

  bool IsFinished() { return Read(finishedLock, finished); }
  bool IsAborted() { return Read(abortedLock, aborted); }

  /// Either of them.
  bool IsStopped() {
    const std::scoped_lock inOrder(finishedLock);
    return finished || IsAborted();
  }

  /// Set once a flag is set.
  Event& Stopped() { return *stopped; }

 private:
  void Raise(std::mutex& lock, bool& flag) {
    {
      const std::scoped_lock locked(lock);
      flag = true;
    }
    stopped->Set();
  }

  static bool Read(std::mutex& lock, const bool& flag) {
    const std::scoped_lock locked(lock);
    return flag;
  }

  // Where both are taken, finishedLock comes first.
  std::mutex finishedLock;
  bool finished = false;
  std::mutex abortedLock;
  bool aborted = false;
  std::shared_ptr<Event> stopped;
};

}  // namespace quorl
