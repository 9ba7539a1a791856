#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "platform/threads.h"

namespace quorl {

/// The two flags that end a receiver's threads, and the events that wake them. Any thread may use it.
class StopFlags {
 public:
  /// `newsOfWriter` wakes the writer, which waits for blocks. False when the machine cannot make the other event.
  bool Prepare(Threads& threads, std::shared_ptr<Event> newsOfWriter) {
    writerNews = std::move(newsOfWriter);
    return (stopped = threads.MakeEvent()) != nullptr;
  }

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
    writerNews->Set();
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
  std::shared_ptr<Event> writerNews;
};

}  // namespace quorl
