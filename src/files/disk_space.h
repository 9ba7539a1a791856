#pragma once

#include <cstdint>
#include <string>

#include "platform/machine.h"

namespace quorl {

/// Whether the file system that holds `targetDir` can take in a transfer. `needed`: bytes, as the 32-bit product that
/// wraps; `trueNeed`: the same without wrapping.
/// 1 yes; 0 when there is too little room or the free space cannot be read; QUORL_STATUS_NOT_FIXED_DISK when it is not
/// on a fixed local disk. Waits up to 600 ms for the extended free-space query.
uint32_t CheckDiskSpace(const Machine& machine, const std::string& targetDir, uint32_t needed, uint64_t trueNeed);

}  // namespace quorl
