#pragma once

#include <memory>
#include <optional>
#include <span>

#include "platform/files.h"
#include "protocol/blocks.h"

namespace quorl {

/// A file of the selection, read block by block. Used by one thread at a time.
class BlockSource {
 public:
  /// `announced`: the shape that the file had when it was announced, which it keeps for everybody, also when it has
  /// grown or shrunk since; without one it is measured now. False when it cannot be opened, or is too long for block
  /// numbers.
  bool Open(Files& files, const std::string& path, const std::optional<FileShape>& announced);
  void Close() { file.reset(); }
  bool IsOpen() const { return file != nullptr; }
  FileShape Shape() const { return shape; }

  struct Block {
    size_t bytes = 0;
    bool isShort = false;  ///< The file has shrunk: the block has fewer bytes than its shape says.
  };

  /// Reads one block into `into`, which has room for it. A block beyond the last has no bytes. Nothing on a read error.
  std::optional<Block> Read(uint32_t block, std::span<uint8_t> into);

 private:
  std::unique_ptr<InputFile> file;
  FileShape shape;
};

}  // namespace quorl
