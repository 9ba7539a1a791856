#include "cli/system/posix/error.h"

#include <cerrno>
#include <cstring>

namespace quorl::cli {

SystemError ErrorOf(int number) {
  using Kind = SystemError::Kind;
  Kind kind = Kind::Other;
  if (number == EEXIST) kind = Kind::Exists;
  if (number == EPIPE) kind = Kind::NoReader;
  if (number == ENOSPC || number == EDQUOT) kind = Kind::NoRoom;
  return {kind, number, std::strerror(number)};
}

SystemError LastError() {
  return ErrorOf(errno);
}

}  // namespace quorl::cli
