// Sending and receiving through a socket that may not have been opened, with what passes counted.
#pragma once

#include <memory>
#include <span>

#include "platform/network.h"
#include "protocol/counters.h"

namespace quorl {

inline bool SendCounted(const std::shared_ptr<DatagramSocket>& socket, Counters& counters,
                        std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait = {}) {
  if (!socket || !socket->Send(datagram, to, wait)) return false;
  counters.Add(Count::DatagramsOut);
  counters.Add(Count::BytesOut, datagram.size());
  return true;
}

inline bool SendCounted(const std::shared_ptr<DatagramSocket>& socket, Counters& counters,
                        std::span<const std::span<const uint8_t>> datagrams, Endpoint to, const SendWait& wait) {
  if (!socket || !socket->SendBatch(datagrams, to, wait)) return false;
  counters.Add(Count::DatagramsOut, datagrams.size());
  for (const auto& datagram : datagrams) counters.Add(Count::BytesOut, datagram.size());
  return true;
}

inline void CountReceived(Counters& counters, const Received& received, size_t datagrams) {
  if (received.outcome != Received::Outcome::Datagram) return;
  counters.Add(Count::DatagramsIn, datagrams);
  counters.Add(Count::BytesIn, received.length);
  counters.Add(Count::SocketOverflows, received.droppedBefore);
}

inline Received ReceiveCounted(const std::shared_ptr<DatagramSocket>& socket, Counters& counters,
                               std::span<uint8_t> buffer, Duration limit, Event* interrupt) {
  if (!socket) return {.outcome = Received::Outcome::Closed};
  const Received received = socket->Receive(buffer, limit, interrupt);
  CountReceived(counters, received, 1);
  return received;
}

inline Received ReceiveCounted(const std::shared_ptr<DatagramSocket>& socket, Counters& counters, DatagramBatch& batch,
                               Duration limit, Event* interrupt) {
  if (!socket) return {.outcome = Received::Outcome::Closed};
  const Received received = socket->ReceiveBatch(batch, limit, interrupt);
  CountReceived(counters, received, batch.Items().size());
  return received;
}

}  // namespace quorl
