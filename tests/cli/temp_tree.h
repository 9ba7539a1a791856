#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace quorl::cli {

/// A directory for one test.
class TempTreeTest : public ::testing::Test {
 protected:
  TempTreeTest() {
    const std::filesystem::path temporary = std::filesystem::canonical(std::filesystem::temp_directory_path());
    root = temporary / ("quorl-test-" + std::to_string(std::random_device()()));
    EXPECT_TRUE(std::filesystem::create_directory(root));
  }
  ~TempTreeTest() override { std::filesystem::remove_all(root); }

  void Write(const std::filesystem::path& name, const std::string& text) const {
    std::filesystem::create_directories((root / name).parent_path());
    std::ofstream(root / name) << text;
  }

  /// A link to the whole tree, where the system lets tests make links.
  void LinkToRoot(const std::filesystem::path& name) const {
    std::error_code ignored;
    std::filesystem::create_directory_symlink(root, root / name, ignored);
  }

  std::filesystem::path root;
};

}  // namespace quorl::cli
