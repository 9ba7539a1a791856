// Who plays a sender or a receiver by hand: what it says, under whatever address, and the files that it would send.
#pragma once

#include <string>
#include <vector>

#include "protocol/datagrams.h"
#include "sim/world/world.h"

namespace quorl::sim {

/// A datagram of a block, however false its head is.
Bytes BuildBlock(Command command, const BlockHead& head, std::span<const uint8_t> bytes);

struct PeerFile {
  std::string name;
  Bytes content;

  /// Content that is another one in each block, and in each file of a transfer.
  PeerFile(std::string name, size_t length, size_t number);

  FileShape Shape() const { return *FileShape::Of(content.size()); }
  /// Nothing beyond the file's end.
  std::span<const uint8_t> BytesAt(uint32_t block) const;
  /// As an honest sender's fresh buffer holds it.
  Bytes Block(Command command, uint32_t number, uint32_t block) const;
};

/// A machine that says what it likes.
class Peer {
 public:
  Peer(World& world, const std::string& name, uint32_t address)
      : machine(world.AddMachine(name, address)), world(world) {}

  void Say(Endpoint as, Endpoint to, std::span<const uint8_t> datagram) {
    world.Net().Carry({world.Now(), &machine, as, to, {datagram.begin(), datagram.end()}});
  }

  SimMachine& machine;

 private:
  World& world;
};

}  // namespace quorl::sim
