#include "sender/transfer_parts.h"

namespace quorl {

bool OpenForTransfer(BlockSource& source, const TransferParts& parts, uint32_t number) {
  const auto announced = parts.progress.AnnouncedShape(number);
  const auto pinned = parts.context.profile == Profile::Robust ? announced : std::nullopt;
  if (!source.Open(parts.context.machine.files, parts.plan.File(number).fullPath, pinned)) return false;
  if (announced && source.Shape().Length() < announced->Length()) parts.progress.NoteShrunkFile(number);
  return true;
}

}  // namespace quorl
