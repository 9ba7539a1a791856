// What is told of a selection before it travels.
#pragma once

#include "cli/show/reporter.h"
#include "cli/transfer/send_plan.h"

namespace quorl::cli {

/// How much it is, and what of it does not travel, or not as it is.
void TellSelection(Reporter& reporter, const SendPlan& plan);

/// Throws a Failure for what stands in the way, all of it at once, so that nobody has to come back for each.
void RejectUnfit(Reporter& reporter, const SendPlan& plan);

/// Everything that travels, name by name.
void ListSelection(Reporter& reporter, const SendPlan& plan);

}  // namespace quorl::cli
