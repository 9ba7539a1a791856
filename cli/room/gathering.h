#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "cli/options/options.h"
#include "cli/room/listeners.h"
#include "cli/show/reporter.h"
#include "cli/transfer/inbox.h"

namespace quorl::cli {

/// Whether a person decides when to begin, as opposed to who is there.
bool MustAsk(const SendOptions& options);

/// The receivers that something is for: those that are there, and those that are not.
struct Attendance {
  std::vector<uint32_t> there;
  std::vector<std::string> missing;  ///< Addresses and names as the user gave them.
};

/// Waits for those who are to receive, and shows them. Each function returns 0, or the exit code when the user left;
/// throws a Failure when too few came.
class Gathering {
 public:
  Gathering(const SendOptions& options, Listeners& listeners, Inbox& inbox, Reporter& reporter)
      : options(options), listeners(listeners), inbox(inbox), reporter(reporter) {}

  /// Waits, tells who is there and how long `blocks` take, and lets a person decide when that is due.
  int First(uint64_t blocks);

  /// Waits as before, and asks nobody.
  int Wait();

  /// Waits for those that failed, as long as for the first; nobody has come when none of them is in the room then.
  int Again(const std::vector<uint32_t>& failed);

  /// Of the latest look. Where it is for everyone, nobody can be missing.
  Attendance WhoIsThere() const;

 private:
  bool IsReady() const;
  bool IsEnough() const;
  std::chrono::seconds Patience() const;
  Expected WhoIsExpected() const;
  void SayWaiting();
  void SayRoom();
  int AskToStart();
  void LookAgain();

  const SendOptions& options;
  Listeners& listeners;
  Inbox& inbox;
  Reporter& reporter;
};

/// "At 200 Mbit/s this takes about 1 min 16 s plus repairs." Nothing where the rate is found while sending.
void SayStreamTime(Reporter& reporter, const SendOptions& options, uint64_t blocks);

}  // namespace quorl::cli
