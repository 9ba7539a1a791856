#include "sim/room/peer.h"

namespace quorl::sim {

Bytes BuildBlock(Command command, const BlockHead& head, std::span<const uint8_t> bytes) {
  Bytes datagram(BLOCK_HEAD_SIZE);
  WriteHeader(command, datagram);
  WriteFields(head, std::span(datagram));
  datagram.insert(datagram.end(), bytes.begin(), bytes.end());
  return datagram;
}

PeerFile::PeerFile(std::string name, size_t length, size_t number) : name(std::move(name)), content(length) {
  for (size_t i = 0; i < length; ++i) content[i] = static_cast<uint8_t>(i * 7 + i / BLOCK_SIZE + number * 31);
}

std::span<const uint8_t> PeerFile::BytesAt(uint32_t block) const {
  const uint64_t offset = std::min<uint64_t>(content.size(), FileShape::BlockOffset(block));
  return std::span(content).subspan(offset, std::min<uint64_t>(BLOCK_SIZE, content.size() - offset));
}

Bytes PeerFile::Block(Command command, uint32_t number, uint32_t block) const {
  const uint8_t isFirst = command == CMD_DATA ? 1 : 0;
  return BuildBlock(command, {number, block, Shape().lastBlock, isFirst, Shape().tailSize, NameField::From(name)},
                    BytesAt(block));
}

}  // namespace quorl::sim
