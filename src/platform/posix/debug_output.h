#pragma once

#include "platform/debug_output.h"

namespace quorl {

/// Writes to the standard error output when the environment variable QUORL_DEBUG is set and not empty.
class PosixDebugOutput : public DebugOutput {
 public:
  PosixDebugOutput();
  void Write(std::string_view text) override;

 private:
  bool wanted = false;
};

}  // namespace quorl
