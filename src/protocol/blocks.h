// How a file is cut into blocks.
#pragma once

#include <quorl/quorl.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace quorl {

/// Bytes of file data in every block but a file's last.
inline constexpr size_t BLOCK_SIZE = QUORL_BLOCK_SIZE;

/// A file's blocks are numbered 0 to lastBlock. The last one holds tailSize bytes, possibly none: a file of an exact
/// multiple of BLOCK_SIZE, an empty one too, ends with an empty block.
struct FileShape {
  uint32_t lastBlock = 0;
  uint16_t tailSize = 0;

  /// Nothing for a file with more blocks than a u32 can count.
  static constexpr std::optional<FileShape> Of(uint64_t length) {
    const uint64_t lastBlock = length / BLOCK_SIZE;
    if (lastBlock >= UINT32_MAX) return std::nullopt;
    return FileShape{static_cast<uint32_t>(lastBlock), static_cast<uint16_t>(length % BLOCK_SIZE)};
  }

  constexpr uint64_t BlockCount() const { return uint64_t{lastBlock} + 1; }
  constexpr uint64_t Length() const { return BlockOffset(lastBlock) + tailSize; }
  constexpr size_t BytesInBlock(uint32_t block) const {
    if (block < lastBlock) return BLOCK_SIZE;
    return block == lastBlock ? tailSize : 0;
  }
  static constexpr uint64_t BlockOffset(uint32_t block) { return uint64_t{block} * BLOCK_SIZE; }

  friend bool operator==(const FileShape&, const FileShape&) = default;
};

}  // namespace quorl
