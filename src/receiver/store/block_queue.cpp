#include "receiver/store/block_queue.h"

#include <algorithm>

namespace quorl {

bool BlockQueue::HasRoomFor(size_t byteCount) {
  const std::scoped_lock locked(queueLock);
  return queuedBytes + Size(byteCount) <= ROOM;
}

size_t BlockQueue::Push(ReceivedBlocks blocks) {
  size_t waiting = 0;
  bool wasEmpty = false;
  {
    const std::scoped_lock locked(queueLock);
    wasEmpty = blockQueue.empty();
    queuedBytes += Size(blocks.bytes.size());
    blockQueue.push_back(std::move(blocks));
    waiting = queuedBytes;
  }
  if (wasEmpty) news->Set();
  return waiting;
}

std::optional<ReceivedBlocks> BlockQueue::Pop() {
  const std::scoped_lock locked(queueLock);
  if (blockQueue.empty()) return std::nullopt;
  std::optional<ReceivedBlocks> blocks(std::move(blockQueue.front()));
  blockQueue.pop_front();
  queuedBytes -= Size(blocks->bytes.size());
  return blocks;
}

void BlockQueue::Clear() {
  const std::scoped_lock locked(queueLock);
  blockQueue.clear();
  queuedBytes = 0;
}

uint64_t BlockQueue::RequestSettle() {
  uint64_t request = 0;
  {
    const std::scoped_lock locked(queueLock);
    request = ++settleRequested;
  }
  news->Set();
  return request;
}

bool BlockQueue::IsSettled(uint64_t request) {
  const std::scoped_lock locked(queueLock);
  return settled >= request;
}

std::optional<uint64_t> BlockQueue::OpenSettleRequest() {
  const std::scoped_lock locked(queueLock);
  if (settled == settleRequested || !blockQueue.empty()) return std::nullopt;
  return settleRequested;
}

void BlockQueue::ConfirmSettled(uint64_t request) {
  const std::scoped_lock locked(queueLock);
  settled = std::max(settled, request);
}

}  // namespace quorl
