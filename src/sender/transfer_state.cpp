// What a host may see of a transfer.
#include "sender/transfer.h"

namespace quorl {

void Transfer::NoteBlock(uint32_t file, bool resent) {
  currentFile = file;
  ++(resent ? blocksResent : blocksSent);
  if (resent) context->counters.Add(Count::RepairsServed);
}

void Transfer::NoteShrunkFile(uint32_t file) {
  const std::scoped_lock lock(context->mutex);
  if (shrunkFiles.insert(file).second && shrunkFiles.size() == 1) firstShrunkFile = file;
}

SendState Transfer::State() const {
  const auto& files = plan.lists->ArraySendFile;
  SendState state;
  state.phase = phase;
  state.fileCount = static_cast<uint32_t>(files.size());
  state.totalBlocks = plan.blocks.total;
  state.blocksSent = blocksSent;
  state.blocksResent = blocksResent;
  if (const uint32_t file = currentFile) state.currentName = files[file - 1].relativeName;
  state.shrunkFiles = static_cast<uint32_t>(shrunkFiles.size());
  if (firstShrunkFile != 0) state.shrunkName = files[firstShrunkFile - 1].relativeName;
  state.answersRefused = context->counters[Count::DroppedTableFull];
  for (int32_t row = 0; row < context->table.Count(); ++row) state.receivers.push_back(ReportOn(row));
  return state;
}

ReceiverReport Transfer::ReportOn(int32_t row) const {
  const ClientEntry& entry = context->table[row];
  ReceiverReport report{entry.addr.address, ReceiverState::Waiting, entry.status, entry.missing};
  const SendPhase reached = phase;
  if (entry.status != 0) {
    report.state = ReceiverState::Failed;
  } else if (entry.complete) {
    report.state = ReceiverState::Complete;
  } else if (reached == SendPhase::Idle || reached == SendPhase::Ready) {
    report.state = ReceiverState::Listening;
  } else if (reached == SendPhase::Repairing && flow->CurrentMaster() == row) {
    report.state = ReceiverState::Master;
  }
  return report;
}

}  // namespace quorl
