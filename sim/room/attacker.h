#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "protocol/datagrams.h"
#include "sim/room/lies.h"
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

  std::string FalseName();
  uint32_t FalseNumber(uint32_t truth);

 private:
  void Run();
  void Listen(DatagramSocket& socket);
  void Learn(std::span<const uint8_t> datagram, Endpoint from);
  void LieToReceivers();
  void LieToSender();
  void LieAboutBlock();
  void LieAboutSymbol();
  void LieAboutLacks();
  void Garble();
  uint64_t Below(uint64_t bound) { return random.Below(bound); }
  void Send(std::vector<uint8_t> datagram, Endpoint to, Endpoint pretended);
  Endpoint AnyReceiver();

  template <typename Message>
  Message False(const Message& truth) {
    return Falsified(truth, Below(FIELD_COUNT<Message> + 1), *this);
  }
  template <typename Message>
  void Tell(const Message& message, Endpoint to, Endpoint pretended) {
    const auto datagram = Build(message);
    Send({datagram.begin(), datagram.end()}, to, pretended);
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
