#pragma once

#include <atomic>
#include <cstdint>

#include "platform/machine.h"
#include "protocol/receiver_sockets.h"
#include "receiver/blocks/lost_block.h"

namespace quorl {

/// What a receiver says to its sender: always to the address that the latest datagram came from. Any thread may use it.
class Replies {
 public:
  Replies(const Machine& machine, ReceiverSockets& sockets, Counters& counters)
      : machine(machine), sockets(sockets), counters(counters) {}

  void SetSender(uint32_t address) { senderAddr = address; }
  uint32_t Sender() const { return senderAddr; }

  /// This machine listens. False when it could not be sent.
  bool SendClient();

  /// A master's request.
  void SendAck(LostBlock wanted);

  /// How many blocks are missing.
  void SendAnswer(uint32_t missingBlocks);

  /// Why this receiver ends or what failed, `copies` times, 10 ms apart. False when it could not be sent.
  bool SendFinish(uint16_t status, int copies);

 private:
  bool Send(std::span<const uint8_t> datagram) { return sockets.SendToSender(senderAddr, datagram); }

  const Machine& machine;
  ReceiverSockets& sockets;
  Counters& counters;
  std::atomic<uint32_t> senderAddr = 0;
};

}  // namespace quorl
