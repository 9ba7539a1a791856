#pragma once

#include "tests/platform/temp_directory.h"

namespace quorl::cli {

/// A directory for one test.
class TempTreeTest : public ::testing::Test {
 protected:
  void Write(const std::filesystem::path& name, const std::string& text) const {
    std::filesystem::create_directories((root / name).parent_path());
    WriteText(root / name, text);
  }

  /// A link to the whole tree, where the system lets tests make links.
  void LinkToRoot(const std::filesystem::path& name) const {
    std::error_code ignored;
    std::filesystem::create_directory_symlink(root, root / name, ignored);
  }

  const TempDirectory temp;
  const std::filesystem::path root = std::filesystem::path(temp.Path()).make_preferred();
};

}  // namespace quorl::cli
