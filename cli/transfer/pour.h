#pragma once

#include <functional>
#include <optional>
#include <string>

#include "cli/manifest/digest.h"
#include "cli/outcome/exits.h"
#include "cli/system/files.h"
#include "cli/system/streams.h"

namespace quorl::cli {

/// Where a transfer of one file goes instead of its name.
struct Sink {
  std::string shown;             ///< What it is called.
  std::optional<Outlet> outlet;  ///< It is poured into this; nothing: it becomes the file
  std::string name;              ///< of this name in the directory of receiving.

  /// What is named behind --output. Throws a Failure when it cannot be written.
  static Sink Open(const std::string& text);
};

/// Pours a whole file into an outlet; why that failed. `interrupted` becomes true when `progress`, which also hears of
/// nothing while the outlet takes nothing, ended it.
std::optional<Failure> Pour(OpenedFile& file, uint64_t size, Sink& sink, const DigestProgress& progress,
                            bool& interrupted);

}  // namespace quorl::cli
