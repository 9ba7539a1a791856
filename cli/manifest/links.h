// Which symbolic links of a manifest are safe to make: those that lead to something that the same manifest delivers,
// by a way on which there is no other link. The sender leaves out the others, and a receiver, which cannot know who
// wrote the manifest, makes none of them.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "cli/manifest/manifest.h"
#include "cli/staging/tree.h"

namespace quorl::cli {

/// Everything that a manifest delivers.
class Delivered {
 public:
  explicit Delivered(const Manifest& manifest);

  /// The way of a link, or why it is refused.
  StagedTree::Link Follow(const ManifestLink& link) const;

 private:
  void AddParents(std::string_view name);

  std::set<std::string, std::less<>> files;
  std::set<std::string, std::less<>> directories;
  std::set<std::string, std::less<>> links;
};

/// All links of a manifest, those that others lead to before them.
std::vector<StagedTree::Link> LinksOf(const Manifest& manifest);

}  // namespace quorl::cli
