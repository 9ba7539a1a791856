#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace quorl::cli {

/// A directory for one test.
class TempTreeTest : public ::testing::Test {
 protected:
  TempTreeTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quorl-test-XXXXXX").native();
    root = std::filesystem::canonical(mkdtemp(pattern.data()));
  }
  ~TempTreeTest() override { std::filesystem::remove_all(root); }

  void Write(const std::filesystem::path& name, const std::string& text) const {
    std::filesystem::create_directories((root / name).parent_path());
    std::ofstream(root / name) << text;
  }

  std::filesystem::path root;
};

}  // namespace quorl::cli
