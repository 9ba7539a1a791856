#pragma once

#include "cli/show/reporter.h"
#include "cli/transfer/delivery.h"

namespace quorl::cli {

/// Tells what became of a transfer, at length.
void TellResult(Reporter& reporter, const ReceiveResult& result);

/// The same in one line, for a receiver that goes on.
void TellResultInALine(Reporter& reporter, const ReceiveResult& result);

/// The facts of it, for the last line.
Fact& AddResult(Fact& fact, const ReceiveResult& result);

}  // namespace quorl::cli
