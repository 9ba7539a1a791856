#pragma once

#include <cstdint>

#include "platform/time.h"
#include "sim/room/room.h"

namespace quorl::sim {

/// What became of a number of runs, and of the receivers in them.
struct Tally {
  uint64_t runs = 0;           ///< Of one transfer each.
  uint64_t endless = 0;        ///< Runs that did not come to an end.
  uint64_t flawless = 0;       ///< Runs at whose end everybody was complete and nobody reported.
  uint64_t complete = 0;       ///< Receivers that hold every byte and say so.
  uint64_t incomplete = 0;     ///< The others.
  uint64_t wronglyTold = 0;    ///< Of these: those that say that they are complete.
  uint64_t wronglyStated = 0;  ///< And those whose state calls them complete.
  uint64_t reported = 0;       ///< Receivers that the sender reports as failed.
  uint64_t wronglyFailed = 0;  ///< Of these: complete ones.
  uint64_t unreported = 0;     ///< Incomplete receivers that the sender does not report.
  uint64_t resentBlocks = 0;   ///< Blocks that the repair sent; each goes to all receivers.
  uint64_t datagrams = 0;      ///< Sent,
  uint64_t deliveries = 0;     ///< and their copies that came to a socket or were lost on the way.
  Duration took{};             ///< Virtual time of the runs that came to an end.
  Duration longest{};          ///< Of all.

  void Add(const Tally& other);
  uint64_t Receivers() const { return complete + incomplete; }
};

/// What became of one room, which has or has not come to an end and has taken so long.
Tally Judge(Room& room, bool ended, Duration took);

}  // namespace quorl::sim
