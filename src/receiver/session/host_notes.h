#pragma once

#include <quorl/quorl.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/windows.h"
#include "protocol/counters.h"

namespace quorl {

/// What a receiver tells its host. Any thread may use it.
class HostNotes {
 public:
  HostNotes(Windows& windows, QuorlWindow hostWindow, Counters& counters)
      : windows(windows), hostWindow(hostWindow), counters(counters) {}

  /// A new transfer: nothing of it has failed yet.
  void Begin() { firstFailure = 0; }

  void PostTaskInfo(uint32_t fileCount, uint32_t totalBlocks);
  void PostFileName(const std::string& name);
  void PostStatus(uint32_t code);

  /// The transfer is complete. With a path of a file to open, returns when the host has handled the message.
  void TellComplete(const std::string& autoOpenPath);

  bool HasWindow() { return windows.IsWindow(hostWindow); }

  /// The first status other than 0 since Begin.
  uint32_t FirstFailure() const { return firstFailure; }

 private:
  void Post(HostMessage message);

  Windows& windows;
  const QuorlWindow hostWindow;
  Counters& counters;
  std::atomic<uint32_t> firstFailure = 0;
};

}  // namespace quorl
