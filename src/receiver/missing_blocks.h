#pragma once

#include <deque>
#include <mutex>
#include <optional>

#include "protocol/counters.h"
#include "protocol/datagrams.h"
#include "receiver/gap_expansion.h"
#include "receiver/lost_map.h"
#include "receiver/sequence_position.h"
#include "receiver/stored_blocks.h"

namespace quorl {

/// What a receiver lacks: the gaps that the receive loop noticed, the missing blocks that they stand for, and the
/// record of what is stored, against which everything is checked before the receiver says that it lacks nothing.
///
/// The receive loop, LostThread and the writer share it. A transfer is named by its generation: what a thread still
/// brings in for an earlier one is ignored.
class MissingBlocks {
 public:
  /// Gaps that wait for expansion at most; blocks of others are found by comparing with what is stored.
  static constexpr size_t GAP_LIMIT = 65536;

  explicit MissingBlocks(Counters& counters) : counters(counters) {}

  // ---- the receive loop ----

  /// Begins a new transfer with nothing stored; its generation.
  uint32_t Begin(uint32_t fileCount, uint32_t totalBlocks);

  /// Forgets the gaps and the missing blocks.
  void Clear();

  Admission Admit(const BlockHead& head);

  /// Hands a gap to LostThread, or expands it at once when that has ended.
  void AddGap(const GapRecord& gap);

  /// No gap and no missing block is known.
  bool IsClear();
  bool Contains(LostBlock block);
  void Remove(LostBlock block);
  std::optional<LostBlock> First();

  /// Enters blocks `first` to `last` of a file.
  void EnterBlocks(uint32_t file, uint64_t first, uint32_t last);
  /// Enters block 0 of files `first` to `last`.
  void EnterFiles(uint64_t first, uint32_t last);
  /// Enters every block that is not stored, but those of failed files.
  void EnterUnstored();
  /// Enters one of these: `preferred`, or the first when that is none.
  void EnterOneUnstored(LostBlock preferred);

  /// What the sender is told: the blocks to be repaired, and all blocks of failed files.
  uint32_t CountForAnswer();

  // ---- LostThread ----

  struct TakenGap {
    GapRecord record;
    uint32_t generation = 0;
    uint64_t blockLimit = 0;
  };
  std::optional<TakenGap> TakeGap();

  /// False when the block is of no use: an earlier transfer's, or no room is left for it.
  bool EnterExpanded(uint32_t generation, LostBlock block);

  /// From now on gaps are expanded by whoever adds them. False when a gap is still waiting.
  bool EndExpansion();

  // ---- the writer ----

  bool IsCurrent(uint32_t generation);
  void Store(uint32_t generation, uint32_t file, uint32_t firstBlock, uint32_t count);
  bool IsStored(uint32_t generation, LostBlock block);
  /// Whether any block of the file is stored.
  bool HasStored(uint32_t generation, uint32_t file);
  /// True when the failure is news.
  bool Fail(uint32_t generation, uint32_t file, uint32_t status);
  bool IsFailed(uint32_t generation, uint32_t file);

  // ---- any thread ----

  /// An announced transfer is stored as a whole.
  bool IsWhole();
  /// Why the first file failed; 0 when none has.
  uint32_t FileFailure();

  struct Counts {
    uint64_t stored = 0;
    uint64_t missing = 0;
    uint32_t failedFiles = 0;
  };
  Counts Count();

 private:
  /// Callers hold lostLock. False when there is no room; that is counted.
  bool Enter(LostBlock block);
  void Expand(const TakenGap& gap);

  Counters& counters;

  std::mutex gapLock;
  std::deque<TakenGap> gapList;
  bool expansionEnded = false;

  // Never taken together with gapLock.
  std::mutex lostLock;
  LostMap lostMap;
  StoredBlocks stored;
  uint32_t generation = 0;
};

}  // namespace quorl
