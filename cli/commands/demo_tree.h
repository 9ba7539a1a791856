#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quorl::cli {

/// Writes the demo's tree into `root`, which does not exist yet: files around the size of a block, some megabytes, deep
/// and empty directories, names beyond ASCII. Throws std::filesystem::filesystem_error or a Failure.
void MakeDemoTree(const std::filesystem::path& root);

/// What differs between two trees, one line each: files missing, added or not equal byte for byte, directories missing
/// or added.
std::vector<std::string> CompareTrees(const std::filesystem::path& expected, const std::filesystem::path& actual);

}  // namespace quorl::cli
