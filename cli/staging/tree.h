#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cli/system/files.h"

namespace quorl::cli {

/// What is in a directory: relative names with "/" between their components, sorted.
struct StagedTree {
  struct File {
    std::string name;
    uint64_t size = 0;
  };
  /// A symbolic link that is yet to be made.
  struct Link {
    std::string name;
    std::string leadsTo;               ///< As it stands in the link.
    std::vector<std::string> through;  ///< The directories on its way,
    std::string to;                    ///< and what stands at its end.
    std::string why;                   ///< Not empty: why it is refused.
  };
  std::vector<File> files;
  std::vector<std::string> emptyDirectories;
  std::vector<Link> links;           ///< Those that others lead to before them. ListTree finds none.
  std::vector<std::string> strange;  ///< Neither a directory nor a regular file with one name.
  bool readable = true;              ///< False when a directory could not be read to its end.
};

/// Everything beneath a directory; no link is followed.
StagedTree ListTree(const Directory& base);

/// "a/b/c" in two: "a/b" and "c"; a name without a slash has no directory.
struct SplitName {
  explicit SplitName(std::string_view name);
  std::string directory;
  std::string leaf;
};

}  // namespace quorl::cli
