#pragma once

#include <cstdint>
#include <optional>

namespace quorl {

/// A place where the stream of first sendings skipped blocks: the block before it and the block after it.
struct GapRecord {
  uint32_t fromFile = 0;
  uint32_t fromBlock = 0;
  uint32_t fromLastBlock = 0;
  uint32_t toFile = 0;
  uint32_t toBlock = 0;
  uint32_t toLastBlock = 0;

  friend bool operator==(const GapRecord&, const GapRecord&) = default;
};

/// How far the stream of blocks has come: the latest block, and the last block of its file. Used by one thread.
class SequencePosition {
 public:
  /// Moves to a first sending. Answers with a gap when the block does not follow the position.
  std::optional<GapRecord> MoveTo(uint32_t file, uint32_t block, uint32_t lastBlock);

  /// Moves to a block that was sent again. The last block stays what the stream told.
  void MoveToResent(uint32_t file, uint32_t block);

  uint32_t File() const { return seenFile; }
  uint32_t Block() const { return seenBlock; }
  uint32_t LastBlock() const { return seenLastBlock; }

 private:
  bool IsFollowedBy(uint32_t file, uint32_t block) const;

  uint32_t seenFile = 1;
  uint32_t seenBlock = 0;
  uint32_t seenLastBlock = 0;
};

}  // namespace quorl
