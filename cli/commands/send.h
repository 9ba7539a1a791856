#pragma once

#include "cli/options/options.h"
#include "cli/show/reporter.h"

namespace quorl::cli {

/// `quorl send`: returns the exit code; throws a Failure.
int RunSend(const Options& options, Reporter& reporter);

}  // namespace quorl::cli
