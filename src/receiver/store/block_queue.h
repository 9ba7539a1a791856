#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

#include "platform/slab.h"
#include "platform/threads.h"
#include "receiver/session/transfer.h"

namespace quorl {

/// A block on its way from the receive loop to the writer, or several that follow each other in one file.
struct ReceivedBlocks {
  TransferPtr transfer;
  BlockHead head;  ///< Of the first.
  bool firstSending = true;
  uint32_t count = 1;
  Slab slab;  ///< Where the bytes are.
  std::span<const uint8_t> bytes;
};

/// The blocks that the writer has not reached yet, and the receive loop's request that the writer puts everything it
/// holds on the disk. Any thread may use it.
class BlockQueue {
 public:
  /// Bytes that wait at most. What does not fit counts as lost and comes again in the repair.
  static constexpr size_t ROOM = 256 * 1024 * 1024;

  /// False when the machine cannot make the event.
  bool Prepare(Threads& threads) { return (news = threads.MakeEvent()) != nullptr; }

  /// Set when the writer has something to look at: a block in a queue that was empty, a request to settle. Whatever
  /// else it waits for sets it as well.
  const std::shared_ptr<Event>& News() const { return news; }

  /// Whether a block with so many bytes fits. Only the thread that pushes can make a yes wrong.
  bool HasRoomFor(size_t byteCount);
  /// How many bytes wait now.
  size_t Push(ReceivedBlocks blocks);
  std::optional<ReceivedBlocks> Pop();
  void Clear();

  /// Asks the writer to settle: to empty the queue, then to write out and close what it has open. The request's number.
  uint64_t RequestSettle();
  bool IsSettled(uint64_t request);

  /// For the writer, with the queue empty: the newest request that is still open.
  std::optional<uint64_t> OpenSettleRequest();
  void ConfirmSettled(uint64_t request);

 private:
  static size_t Size(size_t byteCount) { return sizeof(ReceivedBlocks) + byteCount; }

  std::shared_ptr<Event> news;
  std::mutex queueLock;
  std::deque<ReceivedBlocks> blockQueue;
  size_t queuedBytes = 0;
  uint64_t settleRequested = 0;
  uint64_t settled = 0;
};

}  // namespace quorl
