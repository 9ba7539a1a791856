#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "cli/manifest.h"
#include "cli/staging_files.h"

namespace quorl::cli {

/// What a manifest says of what has arrived.
struct Verification {
  struct Difference {
    std::string name;
    std::string why;
  };
  StagedTree verified;  ///< What it vouches for: the manifest itself is not in it.
  std::vector<Difference> differences;
};

/// The manifest among what has been received, or why it cannot be used; nothing when there is none.
std::optional<std::variant<ReadManifest, std::string>> FindManifest(int staging, const StagedTree& tree,
                                                                    const ManifestKey* key);

/// Compares every file in `staging` with the manifest, and gives those that are right their modification time and
/// executable bit. Nothing when `progress` ended the work.
std::optional<Verification> VerifyTree(int staging, const StagedTree& tree, const Manifest& manifest,
                                       const DigestProgress& progress);

}  // namespace quorl::cli
