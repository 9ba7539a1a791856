#pragma once

#include "cli/options.h"
#include "cli/reporter.h"

namespace quorl::cli {

/// `quorl send`: returns the exit code; throws a Failure.
int RunSend(const Options& options, Reporter& reporter);

}  // namespace quorl::cli
