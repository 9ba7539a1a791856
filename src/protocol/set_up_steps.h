#pragma once

#include <functional>
#include <initializer_list>

#include "platform/debug_output.h"

namespace quorl {

/// One step of setting sockets up: what to do, and what the debug output says when it fails.
struct SetUpStep {
  std::function<bool()> run;
  const char* failure;
};

/// Runs the steps in order, up to the first that fails.
inline bool RunSteps(DebugOutput& debug, std::initializer_list<SetUpStep> steps) {
  for (const SetUpStep& step : steps) {
    if (step.run()) continue;
    debug.Write(step.failure);
    return false;
  }
  return true;
}

}  // namespace quorl
