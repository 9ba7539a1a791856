// The last lines of `quorl send`: who has everything, who has not and why, what it took.
#include "cli/send_result.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "cli/outcome.h"
#include "cli/units.h"

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
  std::array<QuorlCounter, 128> counters{};
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

}  // namespace

void SendResult::Add(const TransferEnd& end, const std::vector<uint32_t>& only) {
  last = end;
  for (const QuorlReceiverState& row : end.rows) {
    if (!only.empty() && std::find(only.begin(), only.end(), row.address) == only.end()) continue;
    auto known = std::find_if(rows.begin(), rows.end(), [&](const auto& one) { return one.address == row.address; });
    if (known == rows.end()) {
      rows.push_back(row);
    } else {
      *known = row;
    }
  }
}

std::vector<uint32_t> SendResult::Failed() const {
  std::vector<uint32_t> failed;
  for (const QuorlReceiverState& row : rows) {
    if (row.state != QUORL_RECEIVER_COMPLETE) failed.push_back(row.address);
  }
  return failed;
}

int SendResult::ExitCode() const {
  if (last.signal != 0) return 128 + last.signal;
  return static_cast<int>(SenderExit(last.status, rows, leftOut || last.state.shrunkFiles != 0));
}

void SendResult::Tell(Reporter& reporter, const HostNames& names, const SentAmount& amount) const {
  auto elapsed = std::chrono::steady_clock::now() - started;
  TellFacts(reporter, names, amount, elapsed);
  reporter.Say(Level::Always, Fact("summary"), Text(reporter, names, amount, elapsed));
  if (last.state.shrunkFiles != 0) {
    reporter.Warn(fmt::format("{} became shorter while being sent; no receiver has them whole",
                              Count(last.state.shrunkFiles, "file")));
  }
  if (last.status != 0) {
    reporter.Warn(fmt::format("the transfer was ended before everyone was complete: {} (status {})",
                              StatusInWords(last.status), last.status));
  }
  if (leftOut) reporter.Say("Not all that was chosen could travel; what was skipped is named above.");
  std::string advice = Advice(amount);
  if (!advice.empty()) reporter.Say(advice);
}

std::string SendResult::Text(const Reporter& reporter, const HostNames& names, const SentAmount& amount,
                             std::chrono::nanoseconds elapsed) const {
  uint64_t complete = CountRows(rows, QUORL_RECEIVER_COMPLETE);
  const char* how = last.signal != 0 ? "Stopped after" : last.status != 0 ? "Ended after" : "Done in";
  std::string text = fmt::format("{} {}.  {} to {} of {}", how, FormatDuration(elapsed), FormatBytes(amount.bytes),
                                 complete, Count(rows.size(), "receiver"));
  // A stream that was cut short has no rate worth telling.
  if (last.state.blocksSent == last.state.blocksTotal && amount.bytes != 0) {
    text += fmt::format(", {} while sending",
                        FormatRate(static_cast<double>(BytesPerSecond(amount.bytes, last.streaming))));
  }
  text += ".";
  if (complete != 0) {
    text += fmt::format("\n  {}  {:>3}   {}", reporter.Painted(Tint::Good, "complete    "), complete,
                        CompleteText(names, amount.blocks));
  }
  for (uint32_t state : {QUORL_RECEIVER_FAILED, QUORL_RECEIVER_MASTER, QUORL_RECEIVER_WAITING}) {
    std::string count = std::to_string(CountRows(rows, state));
    std::string title = reporter.Painted(Tint::Bad, state == QUORL_RECEIVER_FAILED ? "failed      " : "not complete");
    for (const QuorlReceiverState& row : rows) {
      if (row.state != state) continue;
      std::string why = state == QUORL_RECEIVER_FAILED ? RowInWords(row) : "it never said that it lacks nothing";
      text += fmt::format("\n  {}  {:>3}   {}   {}", title, count, names.Label(row.address), why);
      title = std::string(12, ' ');
      count.clear();
    }
  }
  return text;
}

std::string SendResult::CompleteText(const HostNames& names, uint64_t blocks) const {
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

/// Heavy loss costs more than a lower rate would.
std::string SendResult::Advice(const SentAmount& amount) const {
  auto lossy = std::count_if(rows.begin(), rows.end(), [&](const QuorlReceiverState& row) {
    return static_cast<double>(row.missing) > MUCH_LOSS * static_cast<double>(amount.blocks) ||
           row.status == QUORL_STATUS_TOO_MUCH_MISSING;
  });
  if (lossy == 0 || amount.rate == 0) return "";
  return fmt::format(
      "{} of {} missed more than {:.0f} % of the blocks; slower may be faster in all: --rate {}", lossy,
      Count(rows.size(), "receiver"), MUCH_LOSS * 100,
      amount.rate >= 2000 ? fmt::format("{}M", amount.rate / 2000) : fmt::format("{}k", amount.rate / 2));
}

void SendResult::TellFacts(Reporter& reporter, const HostNames& names, const SentAmount& amount,
                           std::chrono::nanoseconds elapsed) const {
  uint64_t repaired = 0;
  for (const QuorlReceiverState& row : rows) {
    reporter.Say(Level::Normal, RowFact(row, names), "");
    if (row.state == QUORL_RECEIVER_COMPLETE) {
      repaired += row.missing;
      reporter.Say(Level::Files, Fact("note").Add("text", RowInWords(row)),
                   fmt::format("  {}: {}", names.Label(row.address), RowInWords(row)));
    }
  }
  TellCounters(reporter);
  uint64_t complete = CountRows(rows, QUORL_RECEIVER_COMPLETE);
  reporter.Result()
      .Add("receivers", rows.size())
      .Add("complete", complete)
      .Add("failed", rows.size() - complete)
      .Add("files", amount.files)
      .Add("bytes", amount.bytes)
      .Add("blocks", amount.blocks)
      .Add("blocks_repaired", repaired)
      .Add("blocks_sent_again", last.state.blocksResent)
      .Add("elapsed_ms", Milliseconds(elapsed))
      .Add("stream_ms", Milliseconds(last.streaming))
      .Add("bytes_per_second", BytesPerSecond(amount.bytes, last.streaming));
}

}  // namespace quorl::cli
