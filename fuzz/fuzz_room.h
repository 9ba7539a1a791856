// What the targets share that run a whole sender or receiver on a simulated machine, in virtual time.
#pragma once

#include <vector>

#include "fuzz/fuzz_input.h"
#include "protocol/datagrams.h"
#include "protocol/endpoints.h"
#include "sim/world/world.h"

namespace quorl::fuzz {

using namespace std::chrono_literals;

constexpr uint32_t SENDER = Ipv4(10, 0, 0, 1);
constexpr Endpoint GROUP = RoomAddress{}.group;

struct File {
  std::string name;
  sim::Bytes content;

  FileShape Shape() const { return *FileShape::Of(content.size()); }
  size_t BytesAt(uint32_t block) const {
    return std::min(BLOCK_SIZE, content.size() - std::min<uint64_t>(content.size(), FileShape::BlockOffset(block)));
  }
};

/// What is sent: files of one, two and three blocks.
inline std::vector<File> FilesOfTransfer() {
  std::vector<File> files{{"\\data\\a", sim::Bytes(5)},
                          {"\\data\\b", sim::Bytes(BLOCK_SIZE)},
                          {"\\data\\sub\\c", sim::Bytes(2 * BLOCK_SIZE + 1)}};
  for (size_t file = 0; file < files.size(); ++file)
    for (size_t i = 0; i < files[file].content.size(); ++i)
      files[file].content[i] = static_cast<uint8_t>(i * 7 + i / BLOCK_SIZE + file * 31);
  return files;
}

/// A block as an honest sender's fresh buffer holds it, with the first `size` of its bytes.
inline std::vector<uint8_t> BlockOf(const File& file, const BlockHead& head, Command command, size_t size) {
  BlockDatagram datagram(command);
  datagram.SetFile(head.file, file.name, head.Shape());
  datagram.SetBlock(head.block);
  const auto begin = file.content.begin() + static_cast<std::ptrdiff_t>(FileShape::BlockOffset(head.block));
  std::copy_n(begin, size, datagram.BlockBytes().begin());
  const auto bytes = datagram.Datagram(size);
  return {bytes.begin(), bytes.end()};
}

/// A machine to be tested, and a room that says to it what the input wants.
struct FuzzRoom {
  FuzzRoom(Input input, uint32_t address) : input(input), machine(world.AddMachine("tested", address)) {
    world.SetLogging(false);
  }

  void Carry(std::span<const uint8_t> datagram, Endpoint from, Endpoint to) {
    world.Net().Carry({world.Now(), &room, from, to, {datagram.begin(), datagram.end()}});
  }

  /// Its role has been torn down: nothing may be left.
  void CheckIsEmpty() {
    world.RunFor(6s);
    MUST(machine.RunningThreads() == 0 && machine.OpenSockets() == 0);
  }

  Input input;
  mutable sim::World world{1};
  sim::SimMachine& machine;
  sim::SimMachine& room = world.AddMachine("room", Ipv4(10, 0, 9, 9));
  const std::vector<File> files = FilesOfTransfer();
};

}  // namespace quorl::fuzz
