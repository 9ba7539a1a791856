#include "receiver/repair/block_repair.h"

#include "receiver/repair/classic_repair.h"
#include "receiver/repair/robust_repair.h"

namespace quorl {

std::unique_ptr<BlockRepair> MakeBlockRepair(Profile profile, BlockRecord& record, Counters& counters) {
  if (profile == Profile::Robust) return std::make_unique<RobustRepair>(record);
  return std::make_unique<ClassicRepair>(record, counters);
}

}  // namespace quorl
