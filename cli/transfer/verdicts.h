#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cli/outcome/send_tally.h"
#include "cli/room/host_names.h"
#include "cli/show/reporter.h"
#include "cli/talk/messages.h"
#include "cli/transfer/inbox.h"

namespace quorl::cli {

/// Waits for what the receivers of a transfer say became of it, and lets it have the last word: the library knows only
/// that every block has been stored.
class Verdicts {
 public:
  Verdicts(Inbox& inbox, Reporter& reporter, const HostNames& names) : inbox(inbox), reporter(reporter), names(names) {}

  /// What has been heard before the transfer was over.
  void Hear(HeardLetter heard) { early.push_back(std::move(heard)); }

  /// Changes the rows of those in `only`, or of all when it is empty. Each is waited for as long as it is heard of. A
  /// signal ends the wait; it becomes that of `end`.
  void Await(SendEnd& end, const std::vector<uint32_t>& only);

 private:
  using Clock = std::chrono::steady_clock;

  std::vector<QuorlReceiverState*> Open(SendEnd& end, const std::vector<uint32_t>& only);
  void Take(SendEnd& end, const HeardLetter& heard);
  void Settle(SendEnd& end, QuorlReceiverState& row, uint32_t status, const std::string& text);

  Inbox& inbox;
  Reporter& reporter;
  const HostNames& names;
  std::map<uint32_t, Clock::time_point> heardAt;
  std::map<uint32_t, bool> said;
  std::vector<HeardLetter> early;
};

}  // namespace quorl::cli
