#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace quorl {

/// A directory that goes with the test.
class TempDirectory {
 public:
  TempDirectory() {
    std::random_device random;
    path = std::filesystem::canonical(std::filesystem::temp_directory_path()).string() + "/quorl-" +
           std::to_string(random()) + std::to_string(random());
    std::filesystem::create_directory(path);
  }
  ~TempDirectory() { std::filesystem::remove_all(path); }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  std::string operator/(const std::string& name) const { return path + "/" + name; }
  const std::string& Path() const { return path; }

 private:
  std::string path;
};

inline void WriteText(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadText(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace quorl
