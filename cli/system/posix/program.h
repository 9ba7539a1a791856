#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorl::cli {

/// What a program writes to standard output, unless it fails; its standard error goes nowhere.
std::optional<std::string> OutputOf(const std::string& program, const std::vector<std::string>& arguments);

}  // namespace quorl::cli
