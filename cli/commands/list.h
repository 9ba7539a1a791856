#pragma once

#include "cli/options/options.h"
#include "cli/show/reporter.h"

namespace quorl::cli {

/// `quorl list`: who listens right now. Returns the exit code; throws a Failure.
int RunList(const Options& options, Reporter& reporter);

}  // namespace quorl::cli
