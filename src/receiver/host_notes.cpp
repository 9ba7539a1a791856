#include "receiver/host_notes.h"

namespace quorl {

void HostNotes::PostTaskInfo(uint32_t fileCount, uint32_t totalBlocks) {
  windows.Post(hostWindow, {WM_TASK_INFO, fileCount, static_cast<intptr_t>(totalBlocks), {}});
}

void HostNotes::PostFileName(const std::string& name) {
  windows.Post(hostWindow, {WM_FILE_NAME, 0, 0, name});
}

void HostNotes::PostStatus(uint32_t code) {
  uint32_t none = 0;
  if (code != QUORL_STATUS_DONE) firstFailure.compare_exchange_strong(none, code);
  if (hostWindow != nullptr) windows.Post(hostWindow, {WM_TRANS_STATUS, code, 0, {}});
}

void HostNotes::TellComplete(const std::string& autoOpenPath) {
  if (autoOpenPath.empty()) {
    windows.Post(hostWindow, {WM_TRANS_STATUS, QUORL_STATUS_DONE, 1, {}});
  } else {
    windows.Send(hostWindow, {WM_TRANS_STATUS, QUORL_STATUS_DONE, 0, autoOpenPath});
  }
}

}  // namespace quorl
