#pragma once

#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "cli/manifest/arriving_digests.h"
#include "cli/manifest/manifest.h"
#include "cli/staging/tree.h"

namespace quorl::cli {

/// Files that stand in their places with the contents that are to come, by the names that they travel under; with the
/// digests that were found, or zeroes where size and time were enough.
using InPlace = std::map<std::string, Digest>;

/// What a manifest says of what has arrived.
struct Verification {
  StagedTree verified;  ///< What it vouches for: the manifest itself is not in it.
  std::vector<Difference> differences;
  uint64_t inPlace = 0;  ///< Files that need not have arrived.
};

/// The manifest among what has been received, or why it cannot be used; nothing when there is none.
std::optional<std::variant<ReadManifest, std::string>> FindManifest(const Directory& staging, const StagedTree& tree,
                                                                    const ManifestKey* key);

/// Compares every file in `staging` with the manifest, and gives those that are right their modification time and
/// executable bit. `arrived`: digests that need not be made, if there are any. Nothing when `progress` ended the work.
std::optional<Verification> VerifyTree(const Directory& staging, const StagedTree& tree, const Manifest& manifest,
                                       const InPlace& inPlace, const DigestProgress& progress,
                                       const ArrivingDigests* arrived = nullptr);

}  // namespace quorl::cli
