#pragma once

#include "cli/console.h"
#include "cli/options.h"

namespace quorl::cli {

/// `quorl send`: returns the exit code; throws a Failure.
int RunSend(const SendOptions& options, Console& console);

}  // namespace quorl::cli
