#include "platform/win32/debug_output.h"

#include "platform/win32/system.h"

namespace quorl {

void Win32DebugOutput::Write(std::string_view text) {
  OutputDebugStringA(std::string(text).c_str());
}

}  // namespace quorl
