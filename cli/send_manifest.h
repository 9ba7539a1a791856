#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/inbox.h"
#include "cli/manifest_build.h"
#include "cli/reporter.h"
#include "cli/selection.h"

namespace quorl::cli {

/// The manifest of a selection, from reading the files to the file that travels with them.
class SendManifest {
 public:
  /// Throws a Failure when the key cannot be read. `keyFile` may be empty.
  SendManifest(const Selection& selection, const std::string& keyFile);

  /// Reads every file and shows how far that is. The signal that ended it, or 0; throws a Failure.
  int Read(Inbox& inbox, Reporter& reporter);

  /// Writes the manifest for these receivers, empty: for all, and maps a drive for it. Its path, to be sent first.
  std::string Write(const std::vector<uint32_t>& onlyFor);

 private:
  const Selection& selection;
  std::optional<ManifestKey> key;
  Manifest manifest;
  std::optional<ManifestFile> file;
};

}  // namespace quorl::cli
