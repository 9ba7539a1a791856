// What nobody needs is not streamed: how the sender finds that out.
#include "cli/transfer/agreement.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "cli/room/library_state.h"
#include "cli/show/units.h"
#include "cli/show/views.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// A receiver that looks through its files says every second that it is at it.
constexpr auto SILENCE = 10s;

// With the second one every digest that is wanted is known.
constexpr uint8_t MOST_ROUNDS = 2;

uint64_t BytesOf(uint64_t size, const Holdings::Range& blocks) {
  return std::min(size, blocks.second * BLOCK_SIZE) - std::min(size, blocks.first * BLOCK_SIZE);
}

}  // namespace

Agreed Agreement::Everything(const SendPlan& plan) {
  Agreed agreed{.isStreamed = std::vector<bool>(plan.files.size(), true)};
  for (const PlannedFile& file : plan.files) agreed.contents.Add(file.size, file.blocks);
  return agreed;
}

Agreed Agreement::Reach(const std::vector<uint32_t>& only) {
  uint8_t round = 0;
  while (round < MOST_ROUNDS) {
    ++round;
    if (!Show(round, only) || !Hear(round)) return {.signal = signal};
    std::set<size_t> asked;
    for (const auto& [address, answer] : answers)
      asked.insert(answer.holdings.Asks().begin(), answer.holdings.Asks().end());
    if (asked.empty()) break;
    signal = manifest.Read({asked.begin(), asked.end()}, inbox, reporter);
    if (signal != 0) return {.signal = signal};
  }
  Agreed agreed = Conclude();
  agreed.rounds = round;
  return agreed;
}

/// Sends the catalogue. False when a signal ended it.
bool Agreement::Show(uint8_t round, const std::vector<uint32_t>& only) {
  const std::string path = manifest.WriteCatalogue(only);
  const char* const first = path.c_str();
  SetSelectFiles(&first, 1, "");
  Say(About{.purpose = About::Purpose::Catalogue,
            .round = round,
            .files = static_cast<uint32_t>(plan.files.size()),
            .bytes = plan.bytes,
            .manifestLast = false,
            .onlyFor = only});
  answers.clear();
  StartSend();
  while (SendStateNow().phase != QUORL_PHASE_OVER) {
    signal = inbox.SignalWithin(20ms);
    if (signal == 0) continue;
    StopSend();
    return false;
  }
  std::vector<uint64_t> blocks;
  for (const PlannedFile& file : plan.files) blocks.push_back(file.blocks);
  for (const QuorlReceiverState& row : RowsNow()) {
    if (row.state == QUORL_RECEIVER_COMPLETE && IsFor(row.address, only))
      answers.emplace(row.address, Answer{Holdings(blocks), false, Clock::now()});
  }
  return true;
}

/// Until each has said all, or has not been heard for long. False when a signal ended it.
bool Agreement::Hear(uint8_t round) {
  const auto isOpen = [](const auto& one) {
    return !one.second.isWhole && Clock::now() - one.second.heardAt < SILENCE;
  };
  while (std::any_of(answers.begin(), answers.end(), isOpen)) {
    while (const auto heard = NextLetter()) Take(round, heard->address, heard->letter);
    if (reporter.WantsProgress()) {
      ProgressView view;
      const auto open = static_cast<uint64_t>(std::count_if(answers.begin(), answers.end(), isOpen));
      view.plain = fmt::format("{} to say what they have", Count(open, "receiver"));
      view.lines = {"Comparing  " + view.plain};
      view.fact.Add("phase", "compare").Add("receivers_comparing", open);
      reporter.Progress(view);
    }
    signal = inbox.SignalWithin(10ms);
    if (signal != 0) return false;
  }
  reporter.ClearProgress();
  return true;
}

void Agreement::Take(uint8_t round, uint32_t address, const Letter& letter) {
  const auto answer = answers.find(address);
  if (answer == answers.end()) return;
  answer->second.heardAt = Clock::now();
  if (const auto* have = std::get_if<Have>(&letter); have != nullptr && have->round == round)
    for (const Have::Run& run : have->runs) answer->second.holdings.Add(run);
  if (const auto* all = std::get_if<HaveAll>(&letter); all != nullptr && all->round == round)
    answer->second.isWhole = true;
}

Agreed Agreement::Conclude() const {
  if (answers.empty()) return Everything(plan);
  Holdings common = answers.begin()->second.holdings;
  for (const auto& [address, answer] : answers) common.Intersect(answer.holdings);
  Agreed agreed{.isStreamed = std::vector<bool>(plan.files.size(), true)};
  for (size_t file = 0; file < plan.files.size(); ++file) {
    const PlannedFile& planned = plan.files[file];
    uint64_t bytes = planned.size, blocks = planned.blocks;
    for (const Holdings::Range& range : Spared(common, file)) {
      agreed.skipped.push_back({.size = sizeof(QuorlBlocks),
                                .file = static_cast<uint32_t>(file + 1),
                                .first = static_cast<uint32_t>(range.first),
                                .count = static_cast<uint32_t>(range.second - range.first),
                                .length = planned.size});
      blocks -= range.second - range.first;
      bytes -= BytesOf(planned.size, range);
    }
    agreed.skippedBlocks += planned.blocks - blocks;
    agreed.isStreamed[file] = blocks > 0;
    if (blocks > 0) agreed.contents.Add(bytes, blocks);
  }
  return agreed;
}

/// What need not be streamed of a file. What is streamed in part has no digest of its own.
std::vector<Holdings::Range> Agreement::Spared(const Holdings& common, size_t file) const {
  const auto held = common.Has().find(file);
  if (held == common.Has().end()) return {};
  const PlannedFile& planned = plan.files[file];
  const ManifestEntry& entry = manifest.Listed().files[file];
  const bool isWhole = held->second.front() == Holdings::Range{0, planned.blocks};
  if (planned.size != entry.size || (!isWhole && entry.digest == Digest{})) return {};
  return held->second;
}

}  // namespace quorl::cli
