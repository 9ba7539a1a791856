#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace quorl {

/// A directory that goes with the test.
class TempDirectory {
 public:
  TempDirectory() {
    std::string pattern = std::filesystem::canonical(testing::TempDir()).string() + "/quorl-XXXXXX";
    path = mkdtemp(pattern.data());
  }
  ~TempDirectory() { std::filesystem::remove_all(path); }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  std::string operator/(const std::string& name) const { return path + "/" + name; }
  const std::string& Path() const { return path; }

 private:
  std::string path;
};

inline void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

inline std::string ReadText(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace quorl
