#pragma once

#include <optional>

#include "protocol/counters.h"
#include "receiver/blocks/block_record.h"

namespace quorl {

/// The blocks that the classic rules have entered as missing, in the order of file and block. They are kept in the
/// record of blocks; this counts what found no room there. Used by one thread at a time.
class LostMap {
 public:
  LostMap(BlockRecord& record, Counters& counters) : record(record), counters(counters) {}

  /// Entering a block twice leaves one entry. False when there is no room for it.
  bool Enter(LostBlock block) {
    const bool entered = record.Lose(block);
    if (entered) {
      counters.Raise(Count::MissingHighWater, record.LostCount());
    } else {
      counters.Add(Count::RefusedMissing);
    }
    return entered;
  }

  /// Enters blocks `first` to `last` of a file.
  void EnterBlocks(uint32_t file, uint64_t first, uint32_t last) {
    for (uint64_t block = first; block <= last; ++block)
      if (!Enter({file, static_cast<uint32_t>(block)})) return;
  }

  /// Enters block 0 of files `first` to `last`.
  void EnterFiles(uint64_t first, uint32_t last) {
    for (uint64_t file = first; file <= last; ++file)
      if (!Enter({static_cast<uint32_t>(file), 0})) return;
  }

  bool Contains(LostBlock block) const { return record.IsLost(block); }
  void Remove(LostBlock block) { record.Find(block); }
  std::optional<LostBlock> First() { return record.FirstLost(); }
  uint64_t Size() const { return record.LostCount(); }
  bool IsEmpty() const { return Size() == 0; }
  void Clear() { record.ForgetLost(); }

 private:
  BlockRecord& record;
  Counters& counters;
};

}  // namespace quorl
