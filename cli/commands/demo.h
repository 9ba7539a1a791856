#pragma once

#include "cli/show/reporter.h"

namespace quorl::cli {

/// `quorl demo`: one sender and three receivers on this machine, each a process of its own, over real multicast, and a
/// comparison of what arrived. Returns the exit code; throws a Failure.
int RunDemo(const Options& options, Reporter& reporter);

}  // namespace quorl::cli
