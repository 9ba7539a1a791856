#pragma once

#include <string>

#include "platform/debug_output.h"

namespace quorl {

/// Writes to the system's debug output, which a debugger or a viewer shows.
class Win32DebugOutput : public DebugOutput {
 public:
  void Write(std::string_view text) override;
};

}  // namespace quorl
