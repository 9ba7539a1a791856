#pragma once

#include "cli/console.h"
#include "cli/options.h"

namespace quorl::cli {

/// `quorl receive`: one transfer. Returns the exit code; throws a Failure.
int RunReceive(const ReceiveOptions& options, Console& console);

}  // namespace quorl::cli
