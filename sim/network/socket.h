#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <deque>
#include <memory>
#include <vector>

#include "platform/network.h"
#include "sim/network/network.h"
#include "sim/world/scheduler.h"

namespace quorl::sim {

class SimMachine;

constexpr bool IsGroupAddress(uint32_t address) {
  // The first byte on the wire is the first in memory.
  const auto first = std::bit_cast<std::array<uint8_t, 4>>(address)[0];
  return first >= 224 && first < 240;
}

/// A socket of a simulated machine.
class SimSocket : public DatagramSocket, public std::enable_shared_from_this<SimSocket> {
 public:
  /// `mostBufferBytes`: the receive buffer is never bigger, whatever is asked for.
  SimSocket(SimMachine& machine, SimNetwork& network, size_t mostBufferBytes)
      : machine(machine), network(network), mostBufferBytes(mostBufferBytes) {}
  ~SimSocket() override { SimSocket::Close(); }

  bool SetReuseAddress() override;
  bool Bind(Endpoint local) override;
  bool SetReceiveBuffer(size_t bytes) override;
  bool SetMulticastInterface(uint32_t localInterface) override;
  bool SetTimeToLive(uint8_t hops) override;
  bool JoinGroup(uint32_t group, uint32_t localInterface) override;
  bool LeaveGroup(uint32_t group, uint32_t localInterface) override;
  bool SetNonBlocking() override;
  bool Send(std::span<const uint8_t> datagram, Endpoint to, const SendWait& wait) override;
  /// The datagrams leave with one call, as where the system cuts them out of one send.
  bool SendBatch(std::span<const std::span<const uint8_t>> datagrams, Endpoint to, const SendWait& wait) override;
  Received Receive(std::span<uint8_t> buffer, Duration limit, Event* interrupt) override;
  void Close() override;

  // For the network.

  SimMachine& Machine() { return machine; }
  bool IsOpen() const { return open; }
  bool HasJoined(uint32_t group) const;
  /// Whether a datagram to this machine's `address` and the socket's port is for it.
  bool Accepts(uint32_t address) const;
  /// False when the receive buffer has no room.
  bool Take(std::shared_ptr<const SentDatagram> datagram);
  /// Whether one that was sent later has come before. To be called once for each that was taken.
  bool IsLate(const SentDatagram& datagram);
  /// Its machine's link takes datagrams again.
  void WakeWriters();

 private:
  struct Membership {
    uint32_t group;
    uint32_t localInterface;
    friend bool operator==(const Membership&, const Membership&) = default;
  };

  bool Fails(const char* call);
  bool CanSend(std::span<const uint8_t> datagram, Endpoint to);
  bool WaitForRoom(const SendWait& wait);
  void Carry(std::span<const uint8_t> datagram, Endpoint to, uint64_t call);
  bool IsOwnAddress(uint32_t address) const;
  bool IsFree(Endpoint endpoint) const;
  uint16_t FreePort() const;
  Received TakeFirst(std::span<uint8_t> buffer);

  SimMachine& machine;
  SimNetwork& network;
  bool open = true;
  bool bound = false;
  bool reuse = false;
  bool blocking = true;
  Endpoint local;
  std::vector<Membership> memberships;
  const size_t mostBufferBytes;
  size_t bufferBytes = std::min<size_t>(212992, mostBufferBytes);
  size_t queuedBytes = 0;
  Moment latestSent{0};
  uint32_t dropped = 0;  ///< Since the latest that was received.
  std::deque<std::shared_ptr<const SentDatagram>> queue;
  WaitList readers;
  WaitList writers;
};

}  // namespace quorl::sim
