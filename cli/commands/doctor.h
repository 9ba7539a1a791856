#pragma once

#include "cli/options/options.h"
#include "cli/show/reporter.h"

namespace quorl::cli {

/// `quorl doctor`: what on this machine keeps transfers from working, and what to do about it. Returns the exit code;
/// throws a Failure.
int RunDoctor(const Options& options, Reporter& reporter);

}  // namespace quorl::cli
