#include "cli/system/memory.h"

namespace quorl::cli {

// One heap serves all threads.
void KeepMemorySmall() {}

}  // namespace quorl::cli
