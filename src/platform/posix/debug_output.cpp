#include "platform/posix/debug_output.h"

#include <unistd.h>

#include <cstdlib>

namespace quorl {

PosixDebugOutput::PosixDebugOutput() {
  const char* wish = std::getenv("QUORL_DEBUG");
  wanted = wish && *wish != '\0';
}

void PosixDebugOutput::Write(std::string_view text) {
  if (!wanted) return;
  // One call, so that lines of several threads do not mix. Nobody can be told when it fails.
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace quorl
