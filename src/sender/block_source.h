#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "platform/clock.h"
#include "platform/files.h"
#include "protocol/blocks.h"

namespace quorl {

/// A file of the selection, read block by block. One thread uses it, any thread may ask whether that one is stuck.
class BlockSource {
 public:
  /// `blocksAhead`: blocks of a pinned shape are read so many at a time, for one who reads them in order.
  explicit BlockSource(Clock& clock, size_t blocksAhead = 1) : clock(clock), blocksAhead(blocksAhead) {}

  /// `pinned`: the shape that the file has for everybody, also when it has grown or shrunk meanwhile; without one it is
  /// measured now, and its blocks are what is in the file when they are read. False when it cannot be opened, or is too
  /// long for block numbers.
  bool Open(Files& files, const std::string& path, const std::optional<FileShape>& pinned);
  void Close() { file.reset(); }
  bool IsOpen() const { return file != nullptr; }
  FileShape Shape() const { return shape; }

  struct Block {
    size_t bytes = 0;
    bool isShort = false;  ///< The file has shrunk: the block has fewer bytes than its shape says.
  };

  /// Reads one block into `into`, which has room for BLOCK_SIZE. A block beyond the last of a pinned shape has no
  /// bytes. Nothing on a read error.
  std::optional<Block> Read(uint32_t block, std::span<uint8_t> into);

  /// The same for `count` blocks of a pinned shape from `first` on, one behind the other, read at once.
  std::optional<Block> ReadRun(uint32_t first, uint32_t count, std::span<uint8_t> into);

  /// Whether the disk has kept the thread for as long as `limit`.
  bool IsStuckFor(Duration limit) const;

 private:
  class Waiting;
  std::optional<size_t> ReadFile(uint64_t offset, std::span<uint8_t> into);
  bool Fetch(uint32_t block);

  static constexpr Moment NEVER = FOREVER;

  Clock& clock;
  const size_t blocksAhead;
  std::unique_ptr<InputFile> file;
  FileShape shape;
  bool isPinned = false;
  std::vector<uint8_t> ahead;  ///< What has been read from `aheadFrom` on.
  uint64_t aheadFrom = 0;
  std::atomic<Moment> waitingSince = NEVER;
};

}  // namespace quorl
