#include "sender/master_flow.h"

#include "sender/classic_flow.h"
#include "sender/robust_flow.h"

namespace quorl {

std::unique_ptr<MasterFlow> MakeMasterFlow(Profile profile, ReceiverTable& table) {
  if (profile == Profile::Robust) return std::make_unique<RobustFlow>(table);
  return std::make_unique<ClassicFlow>(table);
}

}  // namespace quorl
