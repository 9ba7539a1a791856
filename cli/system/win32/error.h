#pragma once

#include "cli/system/error.h"
#include "platform/win32/system.h"

namespace quorl::cli {

/// An error number of the system in the command's terms.
SystemError ErrorOf(DWORD number);

/// None for ERROR_SUCCESS.
inline SystemError NoneOr(DWORD number) {
  return number == ERROR_SUCCESS ? SystemError() : ErrorOf(number);
}

}  // namespace quorl::cli
