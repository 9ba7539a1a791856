#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/campaign/run.h"

namespace quorl::sim {

struct CampaignOptions {
  uint64_t firstNumber = 1;
  uint64_t runs = 1000;
  std::optional<std::chrono::seconds> realTime{};  ///< Instead of a number of runs.
  std::optional<size_t> receivers{};               ///< In every run; else drawn.
  unsigned threads = 1;                            ///< Of the operating system; the runs do not depend on it.
};

/// What many runs came to.
struct CampaignSummary : Tally {
  uint64_t rooms = 0;  ///< Each has one transfer or more.
  uint64_t violated = 0;
  uint64_t attacked = 0;
  uint64_t lies = 0;
  uint64_t longestNumber = 0;
  std::map<std::string, uint64_t> exceptions{};
  std::map<std::string, uint64_t> happened{};  ///< See RunResult.

  void Add(const RunPlan& plan, const RunResult& result);
};

/// Runs the plans of consecutive numbers. `onViolation` is called for each run in which something was not as it must
/// be, one at a time, on any of the threads.
CampaignSummary RunCampaign(const CampaignOptions& options,
                            const std::function<void(const RunPlan&, const RunResult&)>& onViolation);

/// The number of the run that the calling thread works on, for the handler that reports which run ended the program.
uint64_t CurrentRun();

std::string ToText(const CampaignSummary& summary);

}  // namespace quorl::sim
