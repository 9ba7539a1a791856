#include "cli/transfer/verdicts.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/room/library_state.h"
#include "cli/show/sent.h"
#include "cli/show/units.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

// A receiver that checks says every second that it is still at work.
constexpr auto LONGEST_SILENCE = 10s;

}  // namespace

void Verdicts::Await(SendEnd& end, const std::vector<uint32_t>& only) {
  const auto began = Clock::now();
  for (const HeardLetter& heard : early) Take(end, heard);
  early.clear();
  while (true) {
    while (const auto heard = NextLetter()) Take(end, *heard);
    auto open = Open(end, only);
    for (QuorlReceiverState* row : open) {
      const auto last = heardAt.contains(row->address) ? heardAt[row->address] : began;
      if (Clock::now() - last > LONGEST_SILENCE)
        Settle(end, *row, QUORL_STATUS_TIMED_OUT, "everything arrived there, but it never said what became of it");
    }
    open = Open(end, only);
    if (open.empty()) break;
    if (reporter.WantsProgress()) {
      ProgressView view;
      view.plain = fmt::format("{} checked, {} to go", Count(end.rows.size() - open.size(), "receiver"), open.size());
      view.lines = {"Checking   the receivers compare what arrived: " + view.plain};
      view.fact.Add("phase", "check").Add("receivers_checking", open.size());
      reporter.Progress(view);
    }
    if (const int signal = inbox.SignalWithin(20ms)) {
      end.signal = signal;
      break;
    }
  }
  reporter.ClearProgress();
}

/// The rows of those that have everything, as far as the library knows, and have not said what became of it.
std::vector<QuorlReceiverState*> Verdicts::Open(SendEnd& end, const std::vector<uint32_t>& only) {
  std::vector<QuorlReceiverState*> open;
  for (QuorlReceiverState& row : end.rows) {
    const bool tells = (row.capabilities & TELLS_VERDICT) != 0 && row.state == QUORL_RECEIVER_COMPLETE;
    if (IsFor(row.address, only) && tells && !said[row.address]) open.push_back(&row);
  }
  return open;
}

void Verdicts::Take(SendEnd& end, const HeardLetter& heard) {
  heardAt[heard.address] = Clock::now();
  const auto* verdict = std::get_if<FinalVerdict>(&heard.letter);
  if (!verdict) return;
  for (QuorlReceiverState& row : end.rows) {
    if (row.address == heard.address) Settle(end, row, verdict->status, verdict->text);
  }
}

void Verdicts::Settle(SendEnd& end, QuorlReceiverState& row, uint32_t status, const std::string& text) {
  said[row.address] = true;
  if (status == 0) return;
  row.state = QUORL_RECEIVER_FAILED;
  row.status = status;
  if (!text.empty()) end.reasons[row.address] = text;
  reporter.ClearProgress();
  reporter.Say(RowFact(row, names), fmt::format("{} failed: {}", names.Label(row.address), RowInWords(row)));
}

}  // namespace quorl::cli
