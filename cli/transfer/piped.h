#pragma once

#include <optional>
#include <string>

#include "cli/show/reporter.h"
#include "cli/system/files.h"
#include "cli/system/streams.h"

namespace quorl::cli {

/// Standard input as a path that can be sent. A transfer begins with the length of its files, and repairs go back in
/// them: what is no file yet becomes one first, where the system has its place for such.
class Piped {
 public:
  /// `name`: the file's. Returns when the input has ended; throws a Failure when it cannot be had.
  Piped(const std::string& name, Reporter& reporter);

  std::string Path() const;

 private:
  TemporaryDirectory place;
  std::string name;
  std::optional<InputAsFile> input;
};

}  // namespace quorl::cli
