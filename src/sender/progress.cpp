#include "sender/progress.h"

namespace quorl {

std::optional<FileShape> Progress::AnnouncedShape(uint32_t file) const {
  const std::scoped_lock lock(context.mutex);
  return file <= announced.shapes.size() ? announced.shapes[file - 1] : std::nullopt;
}

void Progress::NoteBlock(uint32_t file, bool resent) {
  currentFile = file;
  ++(resent ? blocksResent : blocksSent);
  if (resent) context.counters.Add(Count::RepairsServed);
}

void Progress::NoteShrunkFile(uint32_t file) {
  const std::scoped_lock lock(context.mutex);
  if (shrunkFiles.insert(file).second && shrunkFiles.size() == 1) firstShrunkFile = file;
}

SendState Progress::State() const {
  SendState state;
  state.phase = phase;
  state.fileCount = plan.FileCount();
  state.totalBlocks = announced.total;
  state.blocksSent = blocksSent;
  state.blocksResent = blocksResent;
  state.blocksSkipped = blocksSkipped;
  if (const uint32_t file = currentFile) state.currentName = plan.File(file).relativeName;
  state.shrunkFiles = static_cast<uint32_t>(shrunkFiles.size());
  if (firstShrunkFile != 0) state.shrunkName = plan.File(firstShrunkFile).relativeName;
  state.answersRefused = context.counters[Count::DroppedTableFull];
  return state;
}

}  // namespace quorl
