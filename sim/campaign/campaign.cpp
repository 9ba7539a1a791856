// Runs are independent of each other and a world stays in its thread, so that any number of threads can take the next
// number and run it. Sums do not depend on the order in which they do.
#include "sim/campaign/campaign.h"

#include <cstdio>
#include <mutex>

#include "sim/campaign/parallel.h"

namespace quorl::sim {

namespace {

thread_local uint64_t currentRun = 0;

}  // namespace

void CampaignSummary::Add(const RunPlan& plan, const RunResult& result) {
  if (result.tally.longest > longest) longestNumber = plan.number;
  Tally::Add(result.tally);
  ++rooms;
  violated += result.violations.empty() ? 0 : 1;
  attacked += plan.hasAttacker ? 1 : 0;
  lies += result.lies;
  for (const auto& [what, count] : result.exceptions) exceptions[what] += count;
  for (const auto& [what, count] : result.happened) happened[what] += count;
}

CampaignSummary RunCampaign(const CampaignOptions& options,
                            const std::function<void(const RunPlan&, const RunResult&)>& onViolation) {
  const auto start = std::chrono::steady_clock::now();
  std::mutex mutex;
  CampaignSummary summary;
  const auto isOver = [&](uint64_t index) {
    return options.realTime ? std::chrono::steady_clock::now() - start >= *options.realTime : index >= options.runs;
  };
  ForEachNumber(options.threads, isOver, [&](uint64_t index) {
    currentRun = options.firstNumber + index;
    const RunPlan plan = DrawPlan(currentRun, options.receivers);
    const RunResult result = Execute(plan);
    const std::scoped_lock lock(mutex);
    summary.Add(plan, result);
    if (!result.violations.empty()) onViolation(plan, result);
  });
  return summary;
}

uint64_t CurrentRun() {
  return currentRun;
}

std::string ToText(const CampaignSummary& summary) {
  char text[600];
  std::snprintf(text, sizeof text,
                "%llu rooms, %llu with a broken rule, %llu with an attacker (%llu lies)\n"
                "%llu receivers: %llu told that they are complete, %llu reported as failed\n"
                "%llu transfers, %llu datagrams sent, %llu deliveries; the longest run took %.1f s of virtual time "
                "(number %llu)\n",
                static_cast<unsigned long long>(summary.rooms), static_cast<unsigned long long>(summary.violated),
                static_cast<unsigned long long>(summary.attacked), static_cast<unsigned long long>(summary.lies),
                static_cast<unsigned long long>(summary.Receivers()), static_cast<unsigned long long>(summary.complete),
                static_cast<unsigned long long>(summary.reported), static_cast<unsigned long long>(summary.runs),
                static_cast<unsigned long long>(summary.datagrams), static_cast<unsigned long long>(summary.deliveries),
                std::chrono::duration<double>(summary.longest).count(),
                static_cast<unsigned long long>(summary.longestNumber));
  std::string lines = text;
  for (const auto& [what, count] : summary.exceptions)
    lines += "as the rules have it: " + what + ": " + std::to_string(count) + "\n";
  return lines;
}

}  // namespace quorl::sim
