#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// The names in an open directory in the order of the file system, without "." and ".."; nothing when it cannot be read
/// to its end, and errno says why. The position of the descriptor stays where it is.
std::optional<std::vector<std::string>> NamesIn(int directory);

}  // namespace quorl
