#pragma once

#include <map>
#include <string>
#include <vector>

#include "sim/campaign/run_plan.h"
#include "sim/campaign/tally.h"

namespace quorl::sim {

/// What came of one run.
struct RunResult {
  std::vector<std::string> violations;         ///< Empty when everything was as it must be.
  std::map<std::string, uint64_t> exceptions;  ///< See Checker::Exceptions.
  Tally tally{};
  uint64_t lies = 0;
  std::map<std::string, uint64_t> happened;  ///< Fates of datagrams, and statuses that hosts were told.
  uint64_t logHash = 0;                      ///< Of the event log; 0 when none was kept.
};

/// Runs a plan in two phases. In the first everything may happen, and whatever is said must be true. In the second the
/// faults are over, and everybody who lives must come to an end within a bound of virtual time.
///
/// `trace`: not empty writes the datagrams as a capture file under this name, and the event log beside it as ".log".
RunResult Execute(const RunPlan& plan, const std::string& trace = {}, bool keepsLog = false);

}  // namespace quorl::sim
