#pragma once

#include <cstdint>
#include <vector>

#include "sender/receiver_table.h"

namespace quorl {

/// Whom a sender's host expects to answer when it asks who listens.
struct ExpectedReceivers {
  std::vector<uint32_t> addresses;  ///< Network byte order.
  uint32_t count = 0;               ///< At least so many, whoever they are.

  /// 0 of either: the receivers are not known, and each that may come has to be waited for.
  bool AreKnown() const { return !addresses.empty() || count != 0; }

  /// Whether all of them have answered. `offered`: each of the table also has to have said what it is able to; one that
  /// never says it keeps the others waiting, as before there were offers.
  bool AreAllIn(const ReceiverTable& table, bool offered) const;
};

}  // namespace quorl
