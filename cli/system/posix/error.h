#pragma once

#include "cli/system/error.h"

namespace quorl::cli {

/// An errno in the command's terms.
SystemError ErrorOf(int number);

}  // namespace quorl::cli
