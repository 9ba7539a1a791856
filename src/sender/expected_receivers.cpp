#include "sender/expected_receivers.h"

#include <algorithm>

namespace quorl {

bool ExpectedReceivers::AreAllIn(const ReceiverTable& table, bool offered) const {
  for (int32_t row = 0; offered && row < table.Count(); ++row)
    if (table[row].peer.instance == 0) return false;
  return AreKnown() && table.Count() >= static_cast<int64_t>(count) &&
         std::all_of(addresses.begin(), addresses.end(),
                     [&](uint32_t address) { return table.FindClient(address) != table.Count(); });
}

}  // namespace quorl
