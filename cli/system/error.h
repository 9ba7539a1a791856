#pragma once

#include <string>

namespace quorl::cli {

/// Why the system refused something; of kind None when it did not.
struct SystemError {
  enum class Kind {
    None,
    Exists,    ///< The name is taken.
    NotAFile,  ///< Something else than a regular file.
    NoReader,  ///< Nobody reads any more.
    NoRoom,    ///< On the disk, for contents or for a name, or over a quota.
    NotHere,   ///< This system cannot do it at all.
    Other,
  };
  Kind kind = Kind::None;
  int number = 0;    ///< As this system counts its errors.
  std::string text;  ///< In words.

  explicit operator bool() const { return kind != Kind::None; }
};

/// Why the call of the system that has just failed did so.
SystemError LastError();

}  // namespace quorl::cli
