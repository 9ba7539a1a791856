#include "cli/commands/demo_tree.h"

#include <fmt/format.h>
#include <quorl/quorl.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <map>

#include "cli/outcome/exits.h"
#include "cli/show/escape.h"

namespace quorl::cli {
namespace {

namespace fs = std::filesystem;

constexpr size_t BLOCK = QUORL_BLOCK_SIZE;

/// Bytes that differ from place to place and from file to file, so that a block at the wrong offset or in the wrong
/// file shows. A linear congruential generator is enough.
void WriteFile(const fs::path& path, size_t size) {
  fs::create_directories(path.parent_path());
  std::string bytes(size, '\0');
  uint64_t state = fs::hash_value(path.filename()) | 1;
  for (char& byte : bytes) {
    state = state * 6364136223846793005u + 1442695040888963407u;
    byte = static_cast<char>(state >> 56);
  }
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw Failure{Exit::LocalFiles, fmt::format("\"{}\" cannot be written", Escape(path.string())), "", {}};
}

std::map<fs::path, fs::directory_entry> List(const fs::path& root) {
  std::map<fs::path, fs::directory_entry> entries;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    entries.emplace(entry.path().lexically_relative(root), entry);
  }
  return entries;
}

bool SameBytes(const fs::path& left, const fs::path& right) {
  std::ifstream leftFile(left, std::ios::binary);
  std::ifstream rightFile(right, std::ios::binary);
  std::array<char, 65536> leftBytes{};
  std::array<char, 65536> rightBytes{};
  while (leftFile && rightFile) {
    leftFile.read(leftBytes.data(), leftBytes.size());
    rightFile.read(rightBytes.data(), rightBytes.size());
    auto length = static_cast<size_t>(leftFile.gcount());
    if (leftFile.gcount() != rightFile.gcount()) return false;
    if (std::string_view(leftBytes.data(), length) != std::string_view(rightBytes.data(), length)) return false;
  }
  return leftFile.eof() && rightFile.eof();
}

}  // namespace

void MakeDemoTree(const fs::path& root) {
  WriteFile(root / "empty file", 0);
  WriteFile(root / "one byte", 1);
  WriteFile(root / "a block less one byte", BLOCK - 1);
  WriteFile(root / "exactly a block", BLOCK);
  WriteFile(root / "a block and one byte", BLOCK + 1);
  WriteFile(root / "thirty blocks", 30 * BLOCK);
  WriteFile(root / "big.bin", 6'000'000);
  WriteFile(root / "photos" / "2024" / "summer" / "sea.jpg", 2'345'678);
  WriteFile(root / "a" / "b" / "c" / "d" / "e" / "f" / "deep.txt", 12'345);
  WriteFile(root / u8"Größe" / u8"übermäßig.txt", 5'000);
  WriteFile(root / u8"写真" / u8"空.png", 77'777);
  for (int i = 0; i < 40; ++i)
    WriteFile(root / "many" / fmt::format("file {:02}.dat", i), static_cast<size_t>(i) * 997);
  fs::create_directories(root / "nothing in here" / "nor here");
}

std::vector<std::string> CompareTrees(const fs::path& expected, const fs::path& actual) {
  std::vector<std::string> differences;
  auto wanted = List(expected);
  auto found = List(actual);
  auto note = [&](const fs::path& name, const char* what) {
    differences.push_back(fmt::format("{}: {}", Escape(name.string()), what));
  };
  for (const auto& [name, entry] : wanted) {
    auto same = found.find(name);
    if (same == found.end()) {
      note(name, "missing");
    } else if (entry.is_directory() != same->second.is_directory()) {
      note(name, "of another kind");
    } else if (entry.is_regular_file() && !SameBytes(entry.path(), same->second.path())) {
      note(name, "not equal");
    }
  }
  for (const auto& [name, entry] : found) {
    if (!wanted.contains(name)) note(name, "was never sent");
  }
  return differences;
}

}  // namespace quorl::cli
