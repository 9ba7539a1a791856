#pragma once

#include <atomic>
#include <optional>
#include <set>
#include <utility>

#include "sender/announcements.h"
#include "sender/send_state.h"
#include "sender/sender_context.h"
#include "sender/transfer_plan.h"

namespace quorl {

/// How far a transfer is. Any thread notes and asks.
class Progress {
 public:
  Progress(SenderContext& context, const TransferPlan& plan) : context(context), plan(plan) {}

  SendPhase Phase() const { return phase; }
  void Reach(SendPhase reached) { phase = reached; }
  /// Nothing when another phase has been reached meanwhile.
  void Advance(SendPhase from, SendPhase to) { phase.compare_exchange_strong(from, to); }

  /// To be called with the context's mutex held.
  void NoteAnnounced(BlockCount counted) { announced = std::move(counted); }
  /// The shape that the file had when it was announced; nothing before that, or if it could not be opened then.
  std::optional<FileShape> AnnouncedShape(uint32_t file) const;

  void NoteBlock(uint32_t file, bool resent);
  void NoteSkipped(uint64_t blocks) { blocksSkipped += blocks; }
  /// A file has turned out to be shorter than it was when it was announced, or when it was opened.
  void NoteShrunkFile(uint32_t file);

  /// Without the receivers. To be called with the context's mutex held.
  SendState State() const;

 private:
  SenderContext& context;
  const TransferPlan& plan;
  std::atomic<SendPhase> phase = SendPhase::Ready;
  std::atomic<uint32_t> currentFile = 0;
  std::atomic<uint64_t> blocksSent = 0;
  std::atomic<uint64_t> blocksResent = 0;
  std::atomic<uint64_t> blocksSkipped = 0;

  // Guarded by the context's mutex.
  BlockCount announced;
  std::set<uint32_t> shrunkFiles;
  uint32_t firstShrunkFile = 0;
};

}  // namespace quorl
