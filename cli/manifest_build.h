#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/manifest.h"
#include "cli/staging_files.h"

namespace quorl::cli {

/// What travels, as the manifest is to list it.
struct ManifestSources {
  struct File {
    std::string path;  ///< On this machine.
    std::string name;  ///< As it travels, "tree/sub/a.txt".
  };
  std::vector<File> files;
  std::vector<std::string> emptyDirectories;  ///< As they travel.
  std::vector<uint32_t> onlyFor;              ///< Addresses of the receivers meant; empty: all.
};

/// Reads every file and returns the text of their manifest; nothing when `progress` ended the work. Throws a Failure
/// for a file that cannot be read, changes while it is read, or whose name cannot stand in a manifest.
std::optional<std::string> BuildManifest(const ManifestSources& sources, const ManifestKey* key,
                                         const DigestProgress& progress);

/// A manifest as a file named MANIFEST_NAME, alone in a temporary directory, for as long as this lives: a selection
/// that begins with it sends it first. Throws a Failure when it cannot be written.
class ManifestFile {
 public:
  explicit ManifestFile(std::string_view text);
  ~ManifestFile();
  ManifestFile(const ManifestFile&) = delete;
  ManifestFile& operator=(const ManifestFile&) = delete;

  const std::string& Directory() const { return directory; }

 private:
  std::string directory;
};

}  // namespace quorl::cli
