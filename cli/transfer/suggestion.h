#pragma once

#include <string>

#include "cli/system/files.h"

namespace quorl::cli {

/// Why the file `name` beneath the directory `target` is not to be opened on a sender's word; empty: it may be. A file
/// that could be run by being opened never may.
std::string WhyNotOpened(const Directory& target, const std::string& name);

}  // namespace quorl::cli
