// How the contents of a transfer are cut into groups, which are coded one by one.
//
// A group is a run of whole blocks of consecutive files, as many as fit, one behind the other without a gap: a symbol
// holds the ends and the begins of many small files. The last symbol is filled up with zeroes. The layout follows from
// the lengths of the files alone, so that the sender and every receiver come to the same one.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "coded/code/erasure_code.h"
#include "protocol/blocks.h"
#include "protocol/datagrams.h"

namespace quorl {

/// Bytes that a group holds at most.
inline constexpr size_t GROUP_SIZE = MOST_SOURCE_SYMBOLS * SYMBOL_SIZE;

/// Symbols that so many bytes fill. A group of no bytes, of blocks of empty files, still has one, which must arrive.
constexpr size_t SymbolsOf(size_t bytes) {
  return bytes == 0 ? 1 : (bytes + SYMBOL_SIZE - 1) / SYMBOL_SIZE;
}

/// Blocks of a group that follow one another in a file.
struct BlockRun {
  uint32_t file = 0;  ///< From 1 on.
  uint32_t first = 0;
  uint32_t count = 0;
  size_t offset = 0;  ///< In the group.
  size_t size = 0;
};

/// The runs of a group, one after the other; there may be as many as there are empty files.
class GroupRuns {
 public:
  /// Nothing behind the last one.
  std::optional<BlockRun> Next();

 private:
  friend class GroupLayout;
  GroupRuns(const std::vector<FileShape>& shapes, size_t file, uint64_t block)
      : shapes(&shapes), file(file), block(block) {}

  const std::vector<FileShape>* shapes;
  size_t file;  ///< Of the next block, from 0 on.
  uint64_t block;
  size_t fill = 0;
};

class GroupLayout {
 public:
  GroupLayout() = default;
  explicit GroupLayout(std::vector<FileShape> shapes);

  uint32_t Count() const { return count; }
  /// Those of a group below Count, in order; never none. The layout has to outlive them, in its place.
  GroupRuns Runs(uint32_t group) const;
  /// Bytes that they have together.
  size_t BytesIn(uint32_t group) const;

 private:
  /// Where a file stands at the begin of a group behind the one that it begins in.
  struct Entry {
    uint64_t block = 0;  ///< Its next one,
    bool isIn = false;   ///< and whether there is one.
  };
  Entry EntryOf(size_t file, uint32_t group) const;
  /// The first file that begins in this group or behind it.
  size_t FirstFrom(uint32_t group) const;

  struct Start {
    uint32_t group = 0;
    uint32_t fill = 0;  ///< Bytes of the group in front of the file.
  };

  std::vector<FileShape> shapes;
  std::vector<Start> starts;  ///< Of each file.
  uint32_t count = 0;
};

}  // namespace quorl
