#pragma once

#include "sender/block_source.h"
#include "sender/progress.h"
#include "sender/sender_context.h"
#include "sender/transfer_end.h"
#include "sender/transfer_plan.h"

namespace quorl {

/// What those who carry a transfer out work with.
struct TransferParts {
  SenderContext& context;
  const TransferPlan& plan;
  Progress& progress;
  TransferEnd& end;
};

/// Opens file `number` of the transfer. In the classic profile it is measured anew each time; in the robust one it
/// keeps the shape that was announced, so that a file that grows or shrinks looks the same to receivers that hear of it
/// at different times. False when it cannot be opened.
bool OpenForTransfer(BlockSource& source, const TransferParts& parts, uint32_t number);

}  // namespace quorl
