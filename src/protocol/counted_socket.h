// Sending and receiving through a socket that may not have been opened, with what passes counted.
#pragma once

#include <memory>
#include <span>

#include "platform/network.h"
#include "protocol/counters.h"

namespace quorl {

inline bool SendCounted(const std::shared_ptr<DatagramSocket>& socket, Counters& counters,
                        std::span<const uint8_t> datagram, Endpoint to) {
  if (!socket || !socket->Send(datagram, to)) return false;
  counters.Add(Count::DatagramsOut);
  counters.Add(Count::BytesOut, datagram.size());
  return true;
}

inline Received ReceiveCounted(const std::shared_ptr<DatagramSocket>& socket, Counters& counters,
                               std::span<uint8_t> buffer, Duration limit, Event* interrupt) {
  if (!socket) return {.outcome = Received::Outcome::Closed};
  const Received received = socket->Receive(buffer, limit, interrupt);
  if (received.outcome == Received::Outcome::Datagram) {
    counters.Add(Count::DatagramsIn);
    counters.Add(Count::BytesIn, received.length);
    counters.Add(Count::SocketOverflows, received.droppedBefore);
  }
  return received;
}

}  // namespace quorl
