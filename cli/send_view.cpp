// What a sender's progress looks like, from states of the library alone.
#include "cli/send_view.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/outcome.h"
#include "cli/room.h"
#include "cli/units.h"

namespace quorl::cli {
namespace {

// A block's datagram with the UDP header, four IP headers and four Ethernet frames, preamble and gap included.
constexpr uint64_t WIRE_BITS_PER_BLOCK = (4796 + 8 + 4 * (20 + 38)) * 8;
constexpr uint64_t FIXED_PACE_BLOCKS_PER_SECOND = 200;

uint64_t BytesDone(const QuorlSendState& state, uint64_t bytes) {
  if (state.blocksTotal == 0) return 0;
  double share = static_cast<double>(state.blocksSent) / static_cast<double>(state.blocksTotal);
  return std::min(bytes, static_cast<uint64_t>(share * static_cast<double>(bytes)));
}

std::string LeftText(std::optional<std::chrono::seconds> left) {
  return left ? FormatLeft(*left) : "";
}

void AddReceivers(Fact& fact, std::span<const QuorlReceiverState> rows) {
  fact.Add("receivers_total", rows.size()).Add("receivers_complete", CountRows(rows, QUORL_RECEIVER_COMPLETE));
  fact.Add("receivers_failed", CountRows(rows, QUORL_RECEIVER_FAILED));
}

}  // namespace

ProgressView SendView::Show(const SendMoment& moment, size_t width) {
  sending.Add(moment.now, BytesDone(moment.state, bytes));
  repairing.Add(moment.now, moment.state.blocksResent);
  if (moment.state.phase == QUORL_PHASE_REPAIRING) return ShowRepairing(moment, width);
  if (moment.state.phase != QUORL_PHASE_FINISHING) return ShowSending(moment, width);
  ProgressView view;
  view.lines = {BarLine("Finishing", 1, {"the receivers count what they miss"}, width)};
  view.plain = "every block has travelled, the receivers count what they miss";
  view.fact.Add("phase", "finish");
  AddReceivers(view.fact, moment.rows);
  return view;
}

ProgressView SendView::ShowSending(const SendMoment& moment, size_t width) {
  uint64_t done = BytesDone(moment.state, bytes);
  auto left = sending.TimeFor(bytes - done);
  uint32_t percent = Percent(moment.state.blocksSent, moment.state.blocksTotal);
  // The last block of the stream is not the end.
  percent = std::min(percent, 99u);
  uint64_t number = std::min(moment.filesBefore + 1 - std::min(moment.filesBefore, before), files);
  std::string part = FormatPart(done, bytes);
  std::string rate = FormatRate(sending.PerSecond());
  std::string count = fmt::format("file {} of {}", number, files);
  double share = bytes == 0 ? 0 : static_cast<double>(done) / static_cast<double>(bytes);
  std::string head = BelowBar({count}, width);
  ProgressView view;
  view.lines = {BarLine("Sending", share, {fmt::format("{:2} %", percent), part, rate, LeftText(left)}, width),
                fmt::format("{}  {}", head, ShownName(moment.file, width - std::min(width, head.size() + 3)))};
  view.plain = fmt::format("{} %  {}  {}  {}", percent, part, rate, LeftText(left));
  view.fact.Add("phase", "send").Add("bytes_done", done).Add("bytes_total", bytes);
  view.fact.Add("bytes_per_second", static_cast<uint64_t>(sending.PerSecond()));
  if (left) view.fact.Add("left_ms", std::chrono::milliseconds(*left).count());
  view.fact.Add("file", moment.file).Add("file_number", number).Add("files", files);
  AddReceivers(view.fact, moment.rows);
  return view;
}

ProgressView SendView::ShowRepairing(const SendMoment& moment, size_t width) {
  uint64_t total = 0;
  uint64_t missing = 0;
  uint64_t masterLeft = 0;
  const QuorlReceiverState* current = nullptr;
  for (const QuorlReceiverState& row : moment.rows) {
    total += row.missing;
    if (row.state == QUORL_RECEIVER_MASTER) {
      current = &row;
      masterLeft = LeftOf(row, moment.state.blocksResent);
    }
    if (row.state == QUORL_RECEIVER_WAITING) missing += row.missing;
  }
  missing += masterLeft;
  uint64_t complete = CountRows(moment.rows, QUORL_RECEIVER_COMPLETE);
  uint64_t failed = CountRows(moment.rows, QUORL_RECEIVER_FAILED);
  uint64_t waiting = CountRows(moment.rows, QUORL_RECEIVER_WAITING);
  std::string counts = fmt::format("{}: {} complete", Count(moment.rows.size(), "receiver"), complete);
  if (waiting != 0) counts += fmt::format(", {} waiting", waiting);
  if (current != nullptr) counts += ", 1 in repair";
  if (failed != 0) counts += fmt::format(", {} failed", failed);
  double share = total == 0 ? 0 : 1 - static_cast<double>(missing) / static_cast<double>(total);
  ProgressView view;
  view.plain =
      fmt::format("repairing, {} complete, {} left",
                  fmt::format("{} of {}", complete, Count(moment.rows.size(), "receiver")), Count(missing, "block"));
  view.fact.Add("phase", "repair").Add("blocks_missing", missing).Add("blocks_resent", moment.state.blocksResent);
  AddReceivers(view.fact, moment.rows);
  view.lines = {BarLine("Repairing", share, {counts}, width)};
  if (current != nullptr) {
    std::string who = names.Label(current->address);
    view.lines.push_back(BelowBar({fmt::format("{}: {} of {} left", who, masterLeft, Count(current->missing, "block")),
                                   LeftText(repairing.TimeFor(missing))},
                                  width));
    view.fact.Add("address", FormatAddress(current->address)).Add("blocks_left", masterLeft);
  }
  return view;
}

/// What is repaired for one helps the others too, so this is the most that can be left.
uint64_t SendView::LeftOf(const QuorlReceiverState& row, uint64_t resent) {
  if (row.address != master) {
    master = row.address;
    resentBeforeMaster = resent;
  }
  uint64_t repaired = resent - std::min(resent, resentBeforeMaster);
  return row.missing - std::min<uint64_t>(row.missing, repaired);
}

uint64_t CountRows(std::span<const QuorlReceiverState> rows, uint32_t state) {
  return static_cast<uint64_t>(
      std::count_if(rows.begin(), rows.end(), [state](const auto& row) { return row.state == state; }));
}

std::string RowInWords(const QuorlReceiverState& row) {
  if (row.state == QUORL_RECEIVER_FAILED) return fmt::format("{} (status {})", StatusInWords(row.status), row.status);
  if (row.state != QUORL_RECEIVER_COMPLETE) return "not complete";
  return row.missing == 0 ? "complete" : fmt::format("complete, {} repaired", Count(row.missing, "block"));
}

Fact RowFact(const QuorlReceiverState& row, const HostNames& names) {
  bool failed = row.state == QUORL_RECEIVER_FAILED;
  bool complete = row.state == QUORL_RECEIVER_COMPLETE;
  Fact fact("receiver");
  fact.Add("address", FormatAddress(row.address)).Add("name", names.Short(row.address));
  fact.Add("state", complete ? "complete" : failed ? "failed" : "incomplete");
  if (failed) fact.Add("status", row.status).Add("reason", StatusInWords(row.status));
  return fact.Add("repaired_blocks", complete ? row.missing : 0);
}

std::chrono::milliseconds StreamTime(uint64_t blocks, uint32_t rate) {
  if (rate == 0) return std::chrono::milliseconds(blocks * 1000 / FIXED_PACE_BLOCKS_PER_SECOND);
  return std::chrono::milliseconds(blocks * WIRE_BITS_PER_BLOCK / rate);  // kbit/s are bits a millisecond
}

}  // namespace quorl::cli
