#pragma once

#include <quorl/host.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace quorl::cli {

/// The exit codes of the command. Scripts rely on them.
enum class Exit {
  Complete = 0,
  Other = 1,
  Usage = 2,
  Nobody = 3,        ///< No receiver answered, or no sender came in time.
  Partly = 4,        ///< Some receivers or some files failed.
  AllFailed = 5,     ///< Every receiver failed.
  GroupBusy = 6,     ///< Another sender is active on the group.
  LocalFiles = 7,    ///< Files of this machine cannot be read or written.
  NoRoom = 8,        ///< No room, or a disk that is not a local fixed one.
  PeerLost = 9,      ///< The other side is lost, has stopped or timed out.
  NotVerified = 10,  ///< What arrived is not what the manifest vouches for.
  LeftOut = 11,      ///< Every receiver is complete, but something of the selection could not travel.
  FollowUp = 12,     ///< The program of --then failed, after transfers that did not.
};

/// The codes and what they mean, those of signals included, for the help and the manual.
struct ExitRow {
  int code = 0;
  const char* meaning = "";
};
std::span<const ExitRow> ExitRows();

/// Why the command cannot go on, in three parts: what failed, why, and what to do next, a line each. Thrown by value;
/// the last two may be empty.
struct Failure {
  Exit code = Exit::Other;
  std::string what;
  std::string why;
  std::vector<std::string> next;
};

/// Statuses that a receiver's verdict has beside those of the library.
enum VerdictStatus : uint32_t { NOT_AS_SENT = 13, NAMES_TAKEN = 80 };

/// A QUORL_STATUS_ code in words, as one says it of the machine that it befell.
std::string StatusInWords(uint32_t status);

}  // namespace quorl::cli
