#include "sender/master_flow.h"

#include "sender/classic_flow.h"
#include "sender/robust_flow.h"

namespace quorl {

std::unique_ptr<MasterFlow> MakeMasterFlow(Profile profile, ReceiverTable& table, uint32_t fileCount,
                                           uint32_t totalBlocks) {
  if (profile == Profile::Robust) return std::make_unique<RobustFlow>(table, fileCount, totalBlocks);
  return std::make_unique<ClassicFlow>(table, fileCount, totalBlocks);
}

}  // namespace quorl
