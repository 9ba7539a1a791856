#pragma once

#include "cli/options/options.h"
#include "cli/show/reporter.h"

namespace quorl::cli {

/// `quorl receive`: one transfer, or many. Returns the exit code; throws a Failure.
int RunReceive(const Options& options, Reporter& reporter);

}  // namespace quorl::cli
