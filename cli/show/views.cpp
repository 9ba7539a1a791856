// What a sender's progress looks like, from states of the library alone.
#include "cli/show/views.h"

#include <fmt/format.h>

#include <algorithm>

#include "cli/show/sent.h"
#include "cli/show/units.h"

namespace quorl::cli {
namespace {

constexpr uint64_t FIXED_PACE_BLOCKS_PER_SECOND = 200;

std::string LeftText(std::optional<std::chrono::seconds> left) {
  return left ? FormatLeft(*left) : "";
}

std::string RateText(const RateMeter& meter) {
  const auto rate = meter.PerSecond();
  return rate ? FormatRate(*rate) : "";
}

/// Those that say something.
std::vector<std::string> Said(std::vector<std::string> parts) {
  std::erase(parts, "");
  return parts;
}

/// The reason why a receiver waits once the stream is over.
std::string RepairText(const QuorlReceiveState& state, uint64_t most) {
  if (state.blocksMissing == 0) return "everything is here, the sender is being told";
  const std::string missing = Count(state.blocksMissing, "block");
  if (state.isMaster == 0) return missing + " missing, others have their turn";
  return fmt::format("{} of {} left", state.blocksMissing, Count(most, "block"));
}

void AddReceivers(Fact& fact, std::span<const QuorlReceiverState> rows) {
  fact.Add("receivers_total", rows.size()).Add("receivers_complete", CountRows(rows, QUORL_RECEIVER_COMPLETE));
  fact.Add("receivers_failed", CountRows(rows, QUORL_RECEIVER_FAILED));
}

}  // namespace

ProgressView SendView::Show(const SendMoment& moment, size_t width) {
  if (const uint64_t done = BytesDone(moment.state); done > 0) sending.Add(moment.now, done);
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

/// The manifest, which travels before the files, has no contents of theirs.
uint64_t SendView::BytesDone(const QuorlSendState& state) const {
  const uint64_t ahead = before == 0 ? 0 : state.blocksTotal - std::min(state.blocksTotal, contents.Blocks());
  return contents.BytesIn(state.blocksSent - std::min(state.blocksSent, ahead));
}

ProgressView SendView::ShowSending(const SendMoment& moment, size_t width) {
  const uint64_t bytes = contents.Bytes();
  const uint64_t files = contents.Files();
  uint64_t done = BytesDone(moment.state);
  auto left = sending.TimeFor(bytes - done);
  uint32_t percent = Percent(moment.state.blocksSent, moment.state.blocksTotal);
  // The last block of the stream is not the end.
  percent = std::min(percent, 99u);
  uint64_t number = std::min(moment.filesBefore + 1 - std::min(moment.filesBefore, before), files);
  std::string part = FormatPart(done, bytes);
  const std::vector<std::string> parts = Said({part, RateText(sending), LeftText(left)});
  std::string count = fmt::format("file {} of {}", number, files);
  double share = bytes == 0 ? 0 : static_cast<double>(done) / static_cast<double>(bytes);
  std::string head = BelowBar({count}, width);
  ProgressView view;
  std::vector<std::string> onBar{fmt::format("{:2} %", percent)};
  onBar.insert(onBar.end(), parts.begin(), parts.end());
  view.lines = {BarLine("Sending", share, onBar, width),
                fmt::format("{}  {}", head, ShownName(moment.file, width - std::min(width, head.size() + 3)))};
  view.plain = fmt::format("{} %  {}", percent, fmt::join(parts, "  "));
  view.fact.Add("phase", "send").Add("bytes_done", done).Add("bytes_total", bytes);
  if (const auto rate = sending.PerSecond()) view.fact.Add("bytes_per_second", static_cast<uint64_t>(*rate));
  if (left) view.fact.Add("left_ms", std::chrono::milliseconds(*left).count());
  view.fact.Add("file", LocalName(moment.file)).Add("file_number", number).Add("files", files);
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
    if (row.state == QUORL_RECEIVER_MASTER || row.state == QUORL_RECEIVER_SILENT) {
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
  const bool silent = current != nullptr && current->state == QUORL_RECEIVER_SILENT;
  if (current != nullptr) counts += silent ? ", 1 not answering" : ", 1 in repair";
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
    const std::string what =
        silent ? "does not answer" : fmt::format("{} of {} left", masterLeft, Count(current->missing, "block"));
    view.lines.push_back(BelowBar({fmt::format("{}: {}", who, what), LeftText(repairing.TimeFor(missing))}, width));
    view.fact.Add("address", FormatAddress(current->address)).Add("blocks_left", masterLeft);
  }
  return view;
}

/// A repair helps the others too, and may get lost again: one block is left until the receiver itself says otherwise.
uint64_t SendView::LeftOf(const QuorlReceiverState& row, uint64_t resent) {
  if (row.address != master) {
    master = row.address;
    resentBeforeMaster = resent;
  }
  uint64_t repaired = resent - std::min(resent, resentBeforeMaster);
  return row.missing - std::min<uint64_t>(row.missing - std::min(row.missing, 1u), repaired);
}

ProgressView ReceiveView::Show(RateMeter::Clock::time_point now, const QuorlReceiveState& state, uint64_t bytes,
                               size_t width) {
  contents.Add(now, state.bytesStored);
  blocks.Add(now, state.blocksStored);
  const bool repairing = state.phase == QUORL_PHASE_REPAIRING;
  if (repairing) mostMissing = std::max(mostMissing, state.blocksMissing);
  const std::string percent = fmt::format("{:3} %", Percent(state.blocksStored, state.blocksExpected));
  const std::string left = RepairText(state, mostMissing);
  const std::string amount =
      bytes == 0 ? FormatBytes(state.bytesStored) : FormatPart(std::min(state.bytesStored, bytes), bytes);
  // Blocks take time, be they full or not.
  const std::string rest = repairing && state.isMaster == 0 ? "" : LeftText(blocks.TimeFor(state.blocksMissing));
  const std::vector<std::string> parts = Said({percent, amount, RateText(contents), rest});

  ProgressView view;
  view.lines = {
      BarLine(repairing ? "Repairing" : "Receiving",
              static_cast<double>(state.blocksStored) / static_cast<double>(state.blocksExpected), parts, width),
      BelowBar({repairing ? left : ShownName(state.currentFile, width / 2)}, width)};
  view.plain = fmt::format("{}{}", fmt::join(parts, "  "), repairing ? "  " + left : "");
  view.fact.Add("phase", repairing ? "repairing" : "receiving").Add("blocks_stored", state.blocksStored);
  view.fact.Add("blocks_expected", state.blocksExpected).Add("blocks_missing", state.blocksMissing);
  view.fact.Add("bytes_done", state.bytesStored);
  if (bytes != 0) view.fact.Add("bytes_total", bytes);
  if (repairing) view.fact.Add("has_turn", state.isMaster != 0);
  if (const auto rate = contents.PerSecond()) view.fact.Add("bytes_per_second", static_cast<uint64_t>(*rate));
  view.fact.Add("file", LocalName(state.currentFile));
  return view;
}

void ReadingView::Add(uint64_t bytes) {
  done += bytes;
}

ProgressView ReadingView::Show(size_t width) {
  meter.Add(RateMeter::Clock::now(), done);
  const uint32_t percent = std::min(Percent(done, total), 99u);
  const std::string part = FormatPart(done, total);
  const std::string rest = LeftText(meter.TimeFor(total - std::min(total, done)));
  const double share = total == 0 ? 0 : static_cast<double>(done) / static_cast<double>(total);
  ProgressView view;
  view.lines = {BarLine("Reading", share, {fmt::format("{:2} %", percent), part, rest}, width)};
  view.plain = fmt::format("reading for the manifest, {} %  {}  {}", percent, part, rest);
  view.fact.Add("phase", "read").Add("bytes_done", done).Add("bytes_total", total);
  return view;
}

ProgressView CheckingView(uint64_t done, uint64_t total, size_t width) {
  const uint32_t percent = Percent(done, total);
  const std::vector<std::string> parts{fmt::format("{:3} %", percent), FormatPart(done, total)};
  ProgressView view;
  view.lines = {BarLine("Checking", percent / 100.0, parts, width)};
  view.plain = fmt::format("checking {}", fmt::join(parts, "  "));
  view.fact.Add("phase", "checking").Add("bytes_checked", done);
  return view;
}

std::chrono::milliseconds StreamTime(uint64_t blocks, uint32_t rate) {
  if (rate == 0) return std::chrono::milliseconds(blocks * 1000 / FIXED_PACE_BLOCKS_PER_SECOND);
  return std::chrono::milliseconds(blocks * WIRE_BITS_PER_BLOCK / rate);  // kbit/s are bits a millisecond
}

}  // namespace quorl::cli
