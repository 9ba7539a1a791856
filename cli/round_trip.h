#pragma once

#include <cstdint>

#include "cli/findings.h"

namespace quorl::cli {

/// Sends a datagram of a full block to the group from this machine to itself, and no further: shows whether a firewall
/// of this machine stands between. Takes at most half a second.
Finding TryRoundTrip(uint32_t group, uint32_t port, uint32_t localInterface);

}  // namespace quorl::cli
