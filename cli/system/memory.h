#pragma once

namespace quorl::cli {

/// Lets what is freed go back to the system soon, whichever thread has had it: lists of very many files come and go in
/// turns. To be called before the first thread.
void KeepMemorySmall();

}  // namespace quorl::cli
