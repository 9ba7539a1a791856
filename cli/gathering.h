#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "cli/inbox.h"
#include "cli/options.h"
#include "cli/reporter.h"
#include "cli/room.h"

namespace quorl::cli {

/// Whether a person decides when to begin, as opposed to who is there.
bool MustAsk(const SendOptions& options);

/// Waits for those who are to receive, and shows them. Each function returns 0, or the exit code when the user left;
/// throws a Failure when too few came.
class Gathering {
 public:
  Gathering(const SendOptions& options, Room& room, Inbox& inbox, Reporter& reporter)
      : options(options), room(room), inbox(inbox), reporter(reporter) {}

  /// Waits, tells who is there and how long `blocks` take, and lets a person decide when that is due.
  int First(uint64_t blocks);

  /// Waits as before, and asks nobody.
  int Wait();

  /// Waits for those that failed, as long as for the first; nobody has come when none of them is in the room then.
  int Again(const std::vector<uint32_t>& failed);

 private:
  bool IsReady() const;
  bool IsMeant(uint32_t address) const;
  std::chrono::seconds Patience() const;
  void SayWaiting();
  void SayRoom();
  int AskToStart();

  const SendOptions& options;
  Room& room;
  Inbox& inbox;
  Reporter& reporter;
};

/// "At 200 Mbit/s this takes about 1 min 16 s plus repairs."
void SayStreamTime(Reporter& reporter, const SendOptions& options, uint64_t blocks);

}  // namespace quorl::cli
