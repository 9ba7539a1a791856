#include "receiver/session/host_notes.h"

#include <utility>

namespace quorl {

void HostNotes::PostTaskInfo(uint32_t fileCount, uint32_t totalBlocks) {
  Post({WM_TASK_INFO, fileCount, static_cast<intptr_t>(totalBlocks), {}});
}

void HostNotes::PostFileName(const std::string& name) {
  Post({WM_FILE_NAME, 0, 0, name});
}

void HostNotes::PostStatus(uint32_t code) {
  uint32_t none = 0;
  if (code != QUORL_STATUS_DONE) firstFailure.compare_exchange_strong(none, code);
  if (hostWindow != nullptr) Post({WM_TRANS_STATUS, code, 0, {}});
}

void HostNotes::Post(HostMessage message) {
  if (!windows.Post(hostWindow, std::move(message))) counters.Add(Count::DroppedMessages);
}

void HostNotes::TellComplete(const std::string& autoOpenPath) {
  if (autoOpenPath.empty()) {
    Post({WM_TRANS_STATUS, QUORL_STATUS_DONE, 1, {}});
  } else {
    windows.Send(hostWindow, {WM_TRANS_STATUS, QUORL_STATUS_DONE, 0, autoOpenPath});
  }
}

}  // namespace quorl
