#pragma once

#include <cstdint>

#include "protocol/datagrams.h"
#include "receiver/blocks/block_record.h"

namespace quorl {

/// How much of a stream gets lost while it runs. Every block travels once and in order, so that what is jumped over has
/// been lost, or was left out since it is here already.
class StreamGaps {
 public:
  void Begin() { *this = {}; }

  /// A block of the stream, which has been admitted to `record`.
  void Take(const BlockHead& head, const BlockRecord& record);

  uint64_t Came() const { return came; }
  /// Of a file of which nothing has come at least one block counts.
  uint64_t Lost() const { return lost; }

 private:
  uint64_t CountMissing(uint32_t file, uint64_t from, uint64_t to, const BlockRecord& record) const;

  LostBlock latest{.file = 0};
  uint64_t latestBlocks = 0;  ///< Of that file.
  uint64_t came = 0;
  uint64_t lost = 0;
};

}  // namespace quorl
