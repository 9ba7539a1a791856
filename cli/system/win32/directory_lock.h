#pragma once

#include "cli/system/files.h"
#include "platform/win32/handle.h"

namespace quorl::cli {

/// A lock on a directory among the processes that ask for one, of all users. The system has none for directories: names
/// that it forgets with their last owner stand for it, "in use" for everybody who holds it and "alone" for one.
class DirectoryLock {
 public:
  Locked Take(HANDLE directory, Locking locking);

 private:
  Handle inUse;
  Handle alone;
};

}  // namespace quorl::cli
