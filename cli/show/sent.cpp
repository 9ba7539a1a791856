// The last lines of `quorl send`: the receivers that have everything, those that have not and why, what it took.
#include "cli/show/sent.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"
#include "cli/show/units.h"

namespace quorl::cli {
namespace {

constexpr double MUCH_LOSS = 0.05;

uint64_t Milliseconds(std::chrono::nanoseconds duration) {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

uint64_t BytesPerSecond(uint64_t bytes, std::chrono::nanoseconds duration) {
  double seconds = std::max(std::chrono::duration<double>(duration).count(), 1e-3);
  return static_cast<uint64_t>(static_cast<double>(bytes) / seconds);
}

void TellCounters(Reporter& reporter) {
  std::array<QuorlCounter, 128> counters{{{.size = sizeof(QuorlCounter)}}};
  size_t count = std::min<size_t>(GetCounters(counters.data(), counters.size()), counters.size());
  Fact fact("counters");
  std::string text;
  for (const QuorlCounter& counter : std::span(counters).first(count)) {
    if (!std::string_view(counter.name).starts_with("sender.")) continue;
    fact.Add(counter.name, counter.value);
    if (counter.value != 0) text += fmt::format("{}  {} {}", text.empty() ? "" : "\n", counter.name, counter.value);
  }
  reporter.Say(Level::Protocol, fact, text);
}

std::string CompleteText(const HostNames& names, std::span<const QuorlReceiverState> rows, uint64_t blocks) {
  uint64_t repaired = 0;
  const QuorlReceiverState* worst = nullptr;
  for (const QuorlReceiverState& row : rows) {
    if (row.state != QUORL_RECEIVER_COMPLETE) continue;
    repaired += row.missing;
    if (worst == nullptr || row.missing > worst->missing) worst = &row;
  }
  if (repaired == 0) return "nothing had to be repaired";
  double share = 100.0 * static_cast<double>(repaired) /
                 static_cast<double>(std::max<uint64_t>(blocks * CountRows(rows, QUORL_RECEIVER_COMPLETE), 1));
  std::string text = fmt::format("repaired {} ({:.2f} %)", Count(repaired, "block"), share);
  if (rows.size() > 1) text += fmt::format(", most for {} ({})", names.Label(worst->address), worst->missing);
  return text;
}

std::string SummaryText(const Reporter& reporter, const HostNames& names, const SendTally& tally,
                        const SentAmount& amount, std::chrono::nanoseconds elapsed) {
  const SendEnd& last = tally.Last();
  const auto& rows = tally.Rows();
  uint64_t complete = CountRows(rows, QUORL_RECEIVER_COMPLETE);
  const char* how = last.signal != 0 ? "Stopped after" : last.status != 0 ? "Ended after" : "Done in";
  std::string text = fmt::format("{} {}.  {} to {} of {}", how, FormatDuration(elapsed), FormatBytes(amount.bytes),
                                 complete, Count(rows.size() + tally.Absent().size(), "receiver"));
  // A stream that was cut short has no rate worth telling.
  if (last.state.blocksSent == last.state.blocksTotal && amount.streamed != 0) {
    text += fmt::format(", {} while sending",
                        FormatRate(static_cast<double>(BytesPerSecond(amount.streamed, last.streaming))));
  }
  text += ".";
  if (complete != 0) {
    text += fmt::format("\n  {}  {:>3}   {}", reporter.Painted(Tint::Good, "complete    "), complete,
                        CompleteText(names, rows, amount.blocks));
  }
  for (uint32_t state : {QUORL_RECEIVER_FAILED, QUORL_RECEIVER_SILENT, QUORL_RECEIVER_MASTER, QUORL_RECEIVER_WAITING}) {
    std::string count = std::to_string(CountRows(rows, state));
    std::string title = reporter.Painted(Tint::Bad, state == QUORL_RECEIVER_FAILED ? "failed      " : "not complete");
    for (const QuorlReceiverState& row : rows) {
      if (row.state != state) continue;
      std::string why = state == QUORL_RECEIVER_FAILED ? RowInWords(row) : "it never said that it lacks nothing";
      if (const std::string reason = tally.ReasonOf(row.address); !reason.empty()) why = Escape(reason);
      if (row.status == QUORL_STATUS_DISK_FULL) why += fmt::format(", {} are needed", FormatBytes(amount.bytes));
      text += fmt::format("\n  {}  {:>3}   {}   {}", title, count, names.Label(row.address), why);
      title = std::string(12, ' ');
      count.clear();
    }
  }
  if (!tally.Absent().empty()) {
    text += fmt::format("\n  {}  {:>3}   {}", reporter.Painted(Tint::Bad, "not there   "), tally.Absent().size(),
                        fmt::join(tally.Absent(), ", "));
  }
  return text;
}

uint64_t CountLossy(std::span<const QuorlReceiverState> rows, uint64_t blocks) {
  return static_cast<uint64_t>(std::count_if(rows.begin(), rows.end(), [&](const QuorlReceiverState& row) {
    return static_cast<double>(row.missing) > MUCH_LOSS * static_cast<double>(blocks) ||
           row.status == QUORL_STATUS_TOO_MUCH_MISSING;
  }));
}

/// Heavy loss costs more than a lower rate would.
std::string Advice(std::span<const QuorlReceiverState> rows, const SentAmount& amount) {
  if (!IsTooFast(rows, amount.blocks) || amount.rate == 0 || amount.rate == FULL_SPEED) return "";
  return fmt::format(
      "{} of {} missed more than {:.0f} % of the blocks; slower may be faster in all: --rate {}",
      CountLossy(rows, amount.blocks), Count(rows.size(), "receiver"), MUCH_LOSS * 100,
      amount.rate >= 2000 ? fmt::format("{}M", amount.rate / 2000) : fmt::format("{}k", amount.rate / 2));
}

void TellFacts(Reporter& reporter, const HostNames& names, const SendTally& tally, const SentAmount& amount,
               std::chrono::nanoseconds elapsed) {
  const SendEnd& last = tally.Last();
  const auto& rows = tally.Rows();
  uint64_t repaired = 0;
  for (const QuorlReceiverState& row : rows) {
    Fact fact = RowFact(row, names);
    if (const std::string reason = tally.ReasonOf(row.address); !reason.empty()) fact.Add("detail", reason);
    reporter.Say(Level::Normal, fact, "");
    if (row.state == QUORL_RECEIVER_COMPLETE) {
      repaired += row.missing;
      reporter.Say(Level::Files, Fact("note").Add("text", RowInWords(row)),
                   fmt::format("  {}: {}", names.Label(row.address), RowInWords(row)));
    }
  }
  for (const std::string& one : tally.Absent()) {
    const bool isAddress = ParseAddress(one).has_value();
    Fact fact("receiver");
    fact.Add("address", isAddress ? one : "").Add("name", isAddress ? "" : one).Add("state", "absent");
    reporter.Say(fact, "");
  }
  const size_t receivers = rows.size() + tally.Absent().size();
  TellCounters(reporter);
  uint64_t complete = CountRows(rows, QUORL_RECEIVER_COMPLETE);
  reporter.Result()
      .Add("receivers", receivers)
      .Add("complete", complete)
      .Add("failed", receivers - complete)
      .Add("files", amount.files)
      .Add("bytes", amount.bytes)
      .Add("bytes_streamed", amount.streamed)
      .Add("blocks", amount.blocks)
      .Add("blocks_repaired", repaired)
      .Add("blocks_sent_again", last.state.blocksResent)
      .Add("elapsed_ms", Milliseconds(elapsed))
      .Add("stream_ms", Milliseconds(last.streaming))
      .Add("bytes_per_second", BytesPerSecond(amount.streamed, last.streaming));
}

}  // namespace

void TellSent(Reporter& reporter, const HostNames& names, const SendTally& tally, const SentAmount& amount,
              std::chrono::nanoseconds elapsed) {
  const SendEnd& last = tally.Last();
  TellFacts(reporter, names, tally, amount, elapsed);
  reporter.Say(Level::Always, Fact("summary"), SummaryText(reporter, names, tally, amount, elapsed));
  if (last.state.shrunkFiles != 0) {
    reporter.Warn(fmt::format("{} became shorter while being sent; no receiver has them whole",
                              Count(last.state.shrunkFiles, "file")));
  }
  if (last.status != 0) {
    reporter.Warn(fmt::format("the transfer was ended before everyone was complete: {} (status {})",
                              StatusInWords(last.status), last.status));
  }
  if (tally.HasLeftOut()) reporter.Say("Not all that was chosen could travel; what was skipped is named above.");
  std::string advice = Advice(tally.Rows(), amount);
  if (!advice.empty()) reporter.Say(advice);
}

bool IsTooFast(std::span<const QuorlReceiverState> rows, uint64_t blocks) {
  return CountLossy(rows, blocks) != 0;
}

uint64_t CountRows(std::span<const QuorlReceiverState> rows, uint32_t state) {
  return static_cast<uint64_t>(
      std::count_if(rows.begin(), rows.end(), [state](const auto& row) { return row.state == state; }));
}

std::string RowInWords(const QuorlReceiverState& row) {
  if (row.state == QUORL_RECEIVER_FAILED) return fmt::format("{} (status {})", StatusInWords(row.status), row.status);
  if (row.state == QUORL_RECEIVER_SILENT) return "does not answer";
  if (row.state != QUORL_RECEIVER_COMPLETE) return "not complete";
  return row.missing == 0 ? "complete" : fmt::format("complete, {} repaired", Count(row.missing, "block"));
}

Fact RowFact(const QuorlReceiverState& row, const HostNames& names) {
  bool failed = row.state == QUORL_RECEIVER_FAILED;
  bool complete = row.state == QUORL_RECEIVER_COMPLETE;
  Fact fact("receiver");
  fact.Add("address", FormatAddress(row.address)).Add("name", names.Short(row.address));
  const bool silent = row.state == QUORL_RECEIVER_SILENT;
  fact.Add("state", complete ? "complete" : failed ? "failed" : silent ? "silent" : "incomplete");
  if (failed) fact.Add("status", row.status).Add("reason", StatusInWords(row.status));
  return fact.Add("repaired_blocks", complete ? row.missing : 0);
}

}  // namespace quorl::cli
