#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "platform/machine.h"
#include "protocol/profile.h"
#include "protocol/receiver_sockets.h"
#include "receiver/lost_map.h"

namespace quorl {

/// What a receiver says to its sender: always to the address that the latest datagram came from. Any thread may use it.
class Replies {
 public:
  Replies(const Machine& machine, ReceiverSockets& sockets, Profile profile, Counters& counters)
      : machine(machine), sockets(sockets), profile(profile), counters(counters) {}

  void SetSender(uint32_t address) { senderAddr = address; }
  uint32_t Sender() const { return senderAddr; }

  /// This machine listens. False when it could not be sent.
  bool SendClient();

  /// A master's request.
  void SendAck(LostBlock wanted);

  /// How many blocks are missing. Robust: three times, 10 ms apart.
  void SendAnswer(uint32_t missingBlocks);

  /// Why this receiver ends or what failed. Robust: three times, 10 ms apart. False when it could not be sent.
  bool SendFinish(uint16_t status);

 private:
  bool Send(std::span<const uint8_t> datagram) { return sockets.SendToSender(senderAddr, datagram); }
  bool SendSurely(std::span<const uint8_t> datagram);

  const Machine& machine;
  ReceiverSockets& sockets;
  const Profile profile;
  Counters& counters;
  std::atomic<uint32_t> senderAddr = 0;
};

}  // namespace quorl
