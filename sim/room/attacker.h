#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "protocol/datagrams.h"
#include "sim/room/peer.h"
#include "sim/room/room.h"
#include "sim/world/random.h"

namespace quorl::sim {

/// A machine in the room that belongs to nobody: it listens to the group, speaks the protocol well, and lies. What it
/// does follows from its seed. Lives as long as the room's world runs.
class Attacker : Peer {
 public:
  /// `forgesSources`: about half of its datagrams bear the address of the sender or of a receiver.
  Attacker(Room& room, uint64_t seed, bool forgesSources);

  void Begin();
  void End() { over = true; }

  uint64_t Lies() const { return lies; }

 private:
  void Run();
  void Listen(DatagramSocket& socket);
  void Learn(std::span<const uint8_t> datagram, Endpoint from);
  void LieToReceivers();
  void LieToSender();
  void LieAboutTransfer();
  void LieAboutMaster();
  void LieAboutBlock();
  void LieAboutPoll();
  void LieAboutSymbol();
  void LieAboutLacks();
  void Garble();
  BlockHead FalseHead();
  std::string FalseName();
  uint32_t FalseNumber(uint32_t truth);
  uint64_t Below(uint64_t bound) { return random.Below(bound); }
  void Send(std::vector<uint8_t> datagram, Endpoint to, Endpoint pretended);
  Endpoint AnyReceiver();

  template <typename Message>
  void SendToGroup(const Message& message) {
    const auto datagram = Build(message);
    Send({datagram.begin(), datagram.end()}, group, knownSender);
  }
  template <typename Message>
  void SendToSender(const Message& message) {
    const auto datagram = Build(message);
    Send({datagram.begin(), datagram.end()}, reply, AnyReceiver());
  }

  Room& room;
  Random random;
  const bool forgesSources;
  const Endpoint group;
  const Endpoint reply;
  bool over = false;
  uint64_t lies = 0;
  Endpoint knownSender;
  std::optional<quorl::Task> knownTask;
  std::optional<BlockHead> knownHead;
  std::optional<Poll> knownPoll;
  std::vector<uint8_t> latest;
};

}  // namespace quorl::sim
