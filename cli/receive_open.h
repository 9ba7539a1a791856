#pragma once

#include <string>

namespace quorl::cli {

/// Why the file `name` beneath the directory `target` is not to be opened on a sender's word; empty: it may be. A file
/// that could be run by being opened never may.
std::string WhyNotOpened(int target, const std::string& name);

}  // namespace quorl::cli
