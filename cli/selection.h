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

/// What `quorl send` sends: local paths as the drive paths that the library takes, and what is in them.
struct Selection {
  std::vector<DriveMapping> drives;
  std::vector<std::string> paths;  ///< "D:\name", in the order given.
  uint64_t files = 0;
  uint64_t directories = 0;
  uint64_t bytes = 0;
  std::vector<Remark> leftOut;
  std::vector<Remark> renamed;
};

/// Looks through `paths` and gives every directory that holds one of them a drive letter of its own: then all of them
/// have parents of equal length, and each arrives under its own name wherever it came from. Throws a Failure for a path
/// that is missing, unreadable or cannot travel, and for an unreadable file beneath one.
Selection SurveySelection(const std::vector<std::string>& paths, bool subdirectories);

}  // namespace quorl::cli
