#pragma once

#include <quorl/quorl.h>

#include <cstdint>
#include <string>

#include "platform/machine.h"

namespace quorl {

/// The folder identifier with which a sender names the target directory literally.
inline constexpr uint32_t LITERAL_TARGET = QUORL_TARGET_IS_PATH;

/// The receiver's target directory: `path` as it stands for LITERAL_TARGET, else the special folder `folder` of the
/// user who is logged on (who may not be the user that runs the process). `previous`, the target before, when the
/// machine does not know the folder; empty when the folder has no directory.
std::string ResolveTargetDir(const Machine& machine, uint32_t folder, const std::string& path,
                             const std::string& previous);

}  // namespace quorl
