#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/profile.h"
#include "sim/campaign/tally.h"

namespace quorl::sim {

/// The deliveries that are lost in one run, by their number in the order of arrival.
using Losses = std::vector<uint64_t>;

/// Sends three files of 1, 2 and 3 blocks to two receivers and loses exactly the deliveries named.
Tally RunWithLosses(Profile profile, const Losses& losses);

/// All runs of one kind, added up.
struct ExhaustTally : Tally {
  std::string kind;
  std::vector<Losses> flawed{};  ///< The losses of the first few runs that were not flawless.

  void Add(const Losses& losses, const Tally& run);
};

/// Not sampled but exhausted: the transfer without a loss, with every single lost delivery, and with every pair of
/// them, in either direction. Losing one changes what is sent later; the second loss of a pair is chosen from what then
/// really travels. Three tallies, in this order.
std::vector<ExhaustTally> Exhaust(Profile profile);

/// A table of tallies for people.
std::string ToText(const std::vector<ExhaustTally>& tallies);

}  // namespace quorl::sim
