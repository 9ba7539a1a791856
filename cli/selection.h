#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quorl::cli {

/// A drive letter and the local directory that stands behind it.
struct DriveMapping {
  char letter = 'D';
  std::string directory;
};

/// Something beneath the selection that does not travel, or not as it is.
struct Remark {
  std::string path;
  std::string why;
};

struct PlannedFile {
  std::string name;  ///< As it travels, "tree/sub/a.txt".
  uint64_t size = 0;
  size_t drive = 0;  ///< Which of the selection's drives it lies beneath.
};

/// What `quorl send` sends: local paths as the drive paths that the library takes, and what is in them.
struct Selection {
  std::vector<DriveMapping> drives;
  std::vector<std::string> paths;  ///< "D:\name", in the order given.
  std::vector<PlannedFile> files;
  std::vector<std::string> emptyDirectories;  ///< Those without files, as they travel.
  uint64_t directories = 0;
  uint64_t bytes = 0;
  uint64_t blocks = 0;
  std::vector<Remark> leftOut;
  uint64_t lost = 0;  ///< Files among those left out: who chose them misses something.
  std::vector<Remark> renamed;

  std::string PathOf(const PlannedFile& file) const { return drives[file.drive].directory + "/" + file.name; }
};

/// How many blocks a file of that size travels in: there is always one that is not full, were it empty.
constexpr uint64_t BlocksOf(uint64_t size) {
  return size / 4254 + 1;
}

/// Looks through `paths` and gives every directory that holds one of them a drive letter of its own: then all of them
/// have parents of equal length, and each arrives under its own name wherever it came from. Throws a Failure for a path
/// that is missing, unreadable or cannot travel, and for an unreadable file beneath one.
Selection SurveySelection(const std::vector<std::string>& paths, bool subdirectories);

}  // namespace quorl::cli
