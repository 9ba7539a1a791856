#include "receiver/block_queue.h"

#include <algorithm>

namespace quorl {

bool BlockQueue::HasRoomFor(size_t byteCount) {
  const std::scoped_lock locked(queueLock);
  return queuedBytes + Size(byteCount) <= ROOM;
}

size_t BlockQueue::Push(ReceivedBlock block) {
  const std::scoped_lock locked(queueLock);
  queuedBytes += Size(block.bytes.size());
  blockQueue.push_back(std::move(block));
  return queuedBytes;
}

std::optional<ReceivedBlock> BlockQueue::Pop() {
  const std::scoped_lock locked(queueLock);
  if (blockQueue.empty()) return std::nullopt;
  std::optional<ReceivedBlock> block(std::move(blockQueue.front()));
  blockQueue.pop_front();
  queuedBytes -= Size(block->bytes.size());
  latestPopped = {block->head.file, block->head.block};
  return block;
}

LostBlock BlockQueue::LatestPopped() {
  const std::scoped_lock locked(queueLock);
  return latestPopped;
}

void BlockQueue::Clear() {
  const std::scoped_lock locked(queueLock);
  blockQueue.clear();
  queuedBytes = 0;
}

uint64_t BlockQueue::RequestSettle() {
  const std::scoped_lock locked(queueLock);
  return ++settleRequested;
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
