#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorl::cli {

/// An open file or directory, closed at the end.
class FileHandle {
 public:
  FileHandle() = default;
  explicit FileHandle(int descriptor) : descriptor(descriptor) {}
  FileHandle(FileHandle&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
  FileHandle& operator=(FileHandle&& other) noexcept;
  ~FileHandle();

  int Get() const { return descriptor; }
  explicit operator bool() const { return descriptor >= 0; }

 private:
  int descriptor = -1;
};

/// The names in an open directory; nothing when it cannot be read to its end.
std::optional<std::vector<std::string>> NamesIn(int directory);

/// What is in a directory: relative names with "/" between their components, sorted.
struct StagedTree {
  struct File {
    std::string name;
    uint64_t size = 0;
  };
  std::vector<File> files;
  std::vector<std::string> emptyDirectories;
  std::vector<std::string> strange;  ///< Neither a directory nor a regular file with one link.
  bool readable = true;              ///< False when a directory could not be read to its end.
};

/// Everything beneath the directory `base`; no link is followed.
StagedTree ListTree(int base);

/// "a/b/c" in two: "a/b" and "c"; a name without a slash has no directory.
struct SplitName {
  explicit SplitName(std::string_view name);
  std::string directory;
  std::string leaf;
};

enum class WhenAbsent { Fail, Make };

/// The directory `name` beneath `base`, component by component, none of which may be a link or a file; no name is
/// `base` itself. On failure errno says why.
FileHandle OpenDirectoryBeneath(int base, std::string_view name, WhenAbsent whenAbsent = WhenAbsent::Fail);

/// The regular file `name` beneath `base`, which has no other name, for reading. On failure errno says why.
FileHandle OpenFileBeneath(int base, const std::string& name);

/// Removes `name` in the directory `parent` with all that is in it, links themselves and not what they lead to. True
/// when nothing is left.
bool RemoveTree(int parent, const std::string& name);

/// errno in words, for a name that was to be used beneath a directory.
std::string WhyNotBeneath(int error);

}  // namespace quorl::cli
