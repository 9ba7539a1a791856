#pragma once

#include "protocol/profile.h"

namespace quorl::sim {

/// The biggest room: 200 receivers, 10 000 blocks, 1 % loss. Prints what the simulation of it cost. False when a
/// receiver of the robust profile did not become complete.
bool RunScale(Profile profile);

}  // namespace quorl::sim
