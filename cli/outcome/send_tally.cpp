#include "cli/outcome/send_tally.h"

#include <algorithm>
#include <iterator>

namespace quorl::cli {

Exit SenderExit(uint32_t status, std::span<const QuorlReceiverState> receivers, const Shortfall& shortfall) {
  if (status == QUORL_STATUS_FILE_UNREADABLE) return Exit::LocalFiles;
  if (status != 0 && status != QUORL_STATUS_TIMED_OUT) return Exit::Other;
  auto complete = std::count_if(receivers.begin(), receivers.end(),
                                [](const auto& row) { return row.state == QUORL_RECEIVER_COMPLETE; });
  if (complete == 0) return Exit::AllFailed;
  if (complete < std::ssize(receivers) || shortfall.absent || shortfall.shrunk) return Exit::Partly;
  return shortfall.leftOut ? Exit::LeftOut : Exit::Complete;
}

void SendTally::Add(const SendEnd& end, const std::vector<uint32_t>& only) {
  last = end;
  leftOut = leftOut || end.filesChanged;
  for (const QuorlReceiverState& row : end.rows) {
    if (!only.empty() && std::find(only.begin(), only.end(), row.address) == only.end()) continue;
    const auto reason = end.reasons.find(row.address);
    reasons[row.address] = reason == end.reasons.end() ? "" : reason->second;
    auto known = std::find_if(rows.begin(), rows.end(), [&](const auto& one) { return one.address == row.address; });
    if (known == rows.end()) {
      rows.push_back(row);
    } else {
      *known = row;
    }
  }
}

std::string SendTally::ReasonOf(uint32_t address) const {
  const auto reason = reasons.find(address);
  return reason == reasons.end() ? "" : reason->second;
}

std::vector<uint32_t> SendTally::Failed() const {
  std::vector<uint32_t> failed;
  for (const QuorlReceiverState& row : rows) {
    if (row.state != QUORL_RECEIVER_COMPLETE) failed.push_back(row.address);
  }
  return failed;
}

int SendTally::ExitCode() const {
  if (last.signal != 0) return 128 + last.signal;
  return static_cast<int>(SenderExit(last.status, rows, {!absent.empty(), last.state.shrunkFiles != 0, leftOut}));
}

}  // namespace quorl::cli
