#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/time.h"
#include "protocol/profile.h"

namespace quorl::sim {

/// The deliveries that are lost in one run, by their number in the order of arrival.
using Losses = std::vector<uint64_t>;

/// What one small transfer came to.
struct ExhaustRun {
  uint64_t deliveries = 0;
  bool ended = false;           ///< Sender and receivers came to an end within the limit.
  uint32_t complete = 0;        ///< Receivers that hold every byte and say so.
  uint32_t incomplete = 0;      ///< Receivers that do not.
  uint32_t wronglyTold = 0;     ///< Of these: receivers that reported completion to their host.
  uint32_t wronglyFailed = 0;   ///< Complete receivers that the sender reports as failed.
  uint32_t silentlyMissed = 0;  ///< Incomplete receivers that the sender does not report.
  Duration took{};              ///< From the end of the collection, in virtual time.

  bool IsFlawless() const { return ended && incomplete == 0 && wronglyFailed == 0; }
};

/// Sends three files of 1, 2 and 3 blocks to two receivers and loses exactly the deliveries named.
ExhaustRun RunWithLosses(Profile profile, const Losses& losses);

/// All runs of one kind, added up.
struct ExhaustTally {
  std::string kind;
  uint64_t runs = 0;
  uint64_t flawless = 0;
  uint64_t endless = 0;
  uint64_t complete = 0;
  uint64_t incomplete = 0;
  uint64_t wronglyTold = 0;
  uint64_t wronglyFailed = 0;
  uint64_t silentlyMissed = 0;
  Duration longest{};
  std::vector<Losses> flawed;  ///< The losses of the first few runs that were not flawless.

  void Add(const Losses& losses, const ExhaustRun& run);
};

/// Not sampled but exhausted: the transfer without a loss, with every single lost delivery, and with every pair of
/// them, in either direction. Losing one changes what is sent later; the second loss of a pair is chosen from what then
/// really travels. Three tallies, in this order.
std::vector<ExhaustTally> Exhaust(Profile profile);

/// A table of tallies for people.
std::string ToText(const std::vector<ExhaustTally>& tallies);

}  // namespace quorl::sim
