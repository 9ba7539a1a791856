// Standard input and output, and devices, as streams of bytes.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "cli/system/error.h"

namespace quorl::cli {

/// Standard input as a file that has a length, and that can be opened by its name again and again.
class InputAsFile {
 public:
  enum class Kind {
    Terminal,
    File,    ///< A regular file at its beginning, or a disk: it is taken as it is.
    Stream,  ///< Anything else: it is copied.
  };
  static Kind Look();

  /// Makes `path`, which is free and in a directory of this process alone, lead to it until this object goes. A copy
  /// lies on the disk of that directory, and goes with the process where the system can do that; it is made here, until
  /// the input ends.
  explicit InputAsFile(const std::string& path);

  const SystemError& Why() const { return why; }  ///< Why there is none.
  uint64_t Copied() const { return copied; }      ///< Bytes.

 private:
  struct State;
  std::shared_ptr<State> state;
  SystemError why;
  uint64_t copied = 0;
};

/// What bytes are poured into, in order.
class Outlet {
 public:
  static Outlet StandardOutput();
  /// A device or a pipe that is there. A disk that is in use is refused.
  static Outlet Open(const std::string& path);

  explicit operator bool() const { return state != nullptr; }
  const SystemError& Why() const { return why; }

  /// The bytes that it has in all; nothing when it takes any number.
  std::optional<uint64_t> Room() const;

  /// Writes as much as goes, and waits for that at most so long. How much; nothing: it cannot be written.
  std::optional<size_t> Write(std::span<const char> bytes, std::chrono::milliseconds patience);

  /// Brings what has been written to where it is safe.
  SystemError Sync() const;

 private:
  struct State;
  std::shared_ptr<State> state;
  SystemError why;
};

}  // namespace quorl::cli
