// What a decision of the master's flow control wants done. Decisions are made under a lock; their orders are carried
// out afterwards, outside every lock, in the order in which they were decided.
#pragma once

#include <cstdint>
#include <variant>
#include <vector>

#include "platform/network.h"
#include "protocol/datagrams.h"

namespace quorl {

/// Send CMD_MASTER.
struct SendMasterOrder {
  Endpoint to;
  uint32_t state = 0;
};

/// Send CMD_RELEASE.
struct SendReleaseOrder {
  Endpoint to;
  Release release;
};

/// Multicast a block again.
struct ResendOrder {
  uint32_t file = 0;
  uint32_t block = 0;
};

/// End the transfer with this code.
struct EndOrder {
  uint32_t code = 0;
};

/// Tell the host that a receiver has failed.
struct ClientErrorOrder {
  uint32_t status = 0;
  uint32_t address = 0;
};

/// Let go of the file that is kept open between repair requests.
struct CloseResendFileOrder {};

using Order =
    std::variant<SendMasterOrder, SendReleaseOrder, ResendOrder, EndOrder, ClientErrorOrder, CloseResendFileOrder>;
using Orders = std::vector<Order>;

}  // namespace quorl
