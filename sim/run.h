#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/time.h"
#include "sim/run_plan.h"

namespace quorl::sim {

/// What came of one run.
struct RunResult {
  std::vector<std::string> violations;  ///< Empty when everything was as it must be.
  std::map<std::string, uint64_t> classicExceptions;
  uint64_t datagrams = 0;   ///< Sent,
  uint64_t deliveries = 0;  ///< and their copies that came to a socket or were lost on the way.
  uint64_t lies = 0;
  uint64_t logHash = 0;  ///< Of the event log; 0 when none was kept.
  size_t complete = 0;   ///< Receivers that were told that they are.
  size_t failed = 0;     ///< Receivers that the sender reports.
  Duration took{};       ///< Virtual time.
};

/// Runs a plan in two phases. In the first everything may happen, and whatever is said must be true. In the second the
/// faults are over, and everybody who lives must come to an end within a bound of virtual time.
///
/// `trace`: not empty writes the datagrams as a capture file under this name, and the event log beside it as ".log".
RunResult Execute(const RunPlan& plan, const std::string& trace = {}, bool keepsLog = false);

}  // namespace quorl::sim
