#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/manifest/manifest.h"
#include "cli/show/reporter.h"
#include "cli/system/files.h"
#include "cli/transfer/inbox.h"
#include "cli/transfer/send_plan.h"
#include "cli/transfer/source_watch.h"

namespace quorl::cli {

/// A file that travels, as the manifest is to list it.
struct ManifestSource {
  std::string path;  ///< On this machine.
  std::string name;  ///< As it travels, "tree/sub/a.txt".
};

/// Reads it; nothing when `progress` ended the work. Throws a Failure for a file that cannot be read, or changes while
/// it is read.
std::optional<ManifestEntry> ReadEntry(const ManifestSource& source, DigestKind kind, const DigestProgress& progress);

/// The manifest of what is sent, from reading the files to the file that travels with them.
class SendManifest {
 public:
  /// Throws a Failure when the key cannot be read. `keyFile` may be empty. With `permissions` those of the files
  /// travel.
  SendManifest(const SendPlan& plan, const std::string& keyFile, bool permissions);

  /// Takes the files as they are now; digests of those that are as they were stay. `kind`: the one that everybody
  /// understands; with a key it is always BLAKE2b. Throws a Failure.
  void List(const SourceWatch& watch, DigestKind kind);
  Manifest& Listed() { return manifest; }

  /// Reads these files, by their places in the plan, unless their digests are known, and shows how far that is. The
  /// signal that ended it, or 0; throws a Failure.
  int Read(const std::vector<size_t>& files, Inbox& inbox, Reporter& reporter);
  int ReadAll(Inbox& inbox, Reporter& reporter);

  /// Writes the manifest, or the catalogue, for these receivers, empty: for all, and maps a drive for it. Its path.
  /// Throws a Failure.
  std::string Write(const std::vector<uint32_t>& onlyFor);
  std::string WriteCatalogue(const std::vector<uint32_t>& onlyFor);

  /// Writes the manifest anew, with what has become known since. It keeps its length. Any thread.
  void Complete() const;

 private:
  const SendPlan& plan;
  const bool permissions;
  std::string Place(std::string_view name, const std::string& text);

  std::optional<ManifestKey> key;
  Manifest manifest;
  std::optional<TemporaryDirectory> place;  ///< Holds the file, and nothing else.
};

}  // namespace quorl::cli
