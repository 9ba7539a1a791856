#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "protocol/datagrams.h"

namespace quorl {

/// What a role counts while it works. Some exist on one side only; counters.cpp names them for each.
enum class Count : uint8_t {
  DatagramsIn,
  BytesIn,
  DatagramsOut,
  BytesOut,
  SocketOverflows,  ///< Datagrams that the system dropped because a receive buffer was full.

  DroppedWrongMagic,  ///< From here on one for each Reject, in its order.
  DroppedUnknownCommand,
  DroppedNotForThisSide,
  DroppedTooShort,
  DroppedNotFirstSending,
  DroppedFileNumberZero,
  DroppedTailOutOfRange,
  DroppedBlockIncomplete,
  DroppedTextTooLong,

  DroppedStranger,     ///< From another address than the sender that the receiver is bound to, or than the known
                       ///< receivers.
  DroppedUnannounced,  ///< What only an announcement gives a meaning, without one.
  DroppedMoreFilesThanBlocks,  ///< An announcement whose totals do not match: every file has a block.
  DroppedBlockBeyondLast,      ///< A block after its file's last.
  DroppedBeyondFileCount,      ///< A block of a file beyond the announced ones,
  DroppedBeyondTotal,          ///< or beyond the announced number of blocks,
  DroppedSecondShape,          ///< or with another shape or name than its file has.
  DroppedQueueFull,            ///< A block that found no room on the way to the writer.
  DroppedMessages,             ///< Messages that found no room in the host window's queue.

  RefusedNames,        ///< Files whose name leads nowhere beneath the target, or to the place of another file.
  RefusedDirectories,  ///< Empty directories of such a name, or beyond what one transfer may announce.
  RefusedGaps,         ///< Gaps that found no room; their blocks are found by comparing with what is stored,
  RefusedMissing,      ///< and so are missing blocks that found none.

  QueueHighWater,    ///< Bytes on the way to the writer.
  GapsHighWater,     ///< Gaps that waited for expansion.
  MissingHighWater,  ///< Blocks known to be missing.

  RepairsAsked,
  RepairsServed,

  DroppedTableFull,       ///< Answers to the collection that found no row,
  DroppedOrderQueueFull,  ///< and reactions to datagrams that found the order queue full.
  OrdersHighWater,        ///< Orders that waited to be carried out.

  COUNT
};

struct NamedCount {
  const char* name;  ///< Lives as long as the process.
  uint64_t value;
};

enum class Role { Sender, Receiver };

/// The counters of one role, from one initialisation to the next. Any thread may use it; nothing is ordered by it.
class Counters {
 public:
  void Add(Count what, uint64_t amount = 1) { At(what).fetch_add(amount, std::memory_order_relaxed); }

  /// A datagram that goes no further.
  void AddRejected(Reject reason) {
    Add(static_cast<Count>(static_cast<size_t>(Count::DroppedWrongMagic) + static_cast<size_t>(reason)));
  }

  /// For a high-water mark. One thread at a time raises the same one.
  void Raise(Count what, uint64_t value) {
    if (At(what).load(std::memory_order_relaxed) < value) At(what).store(value, std::memory_order_relaxed);
  }

  uint64_t operator[](Count what) const { return values[static_cast<size_t>(what)].load(std::memory_order_relaxed); }

  /// Those that `role` has, by their public names.
  std::vector<NamedCount> List(Role role) const;

 private:
  std::atomic<uint64_t>& At(Count what) { return values[static_cast<size_t>(what)]; }

  std::array<std::atomic<uint64_t>, static_cast<size_t>(Count::COUNT)> values{};
};

}  // namespace quorl
