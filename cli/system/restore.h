#pragma once

namespace quorl::cli {

/// Undoes the changes of every KeyMode, for a process that may end without their destructors.
void RestoreTerminal();

}  // namespace quorl::cli
