#pragma once

#include <array>
#include <mutex>
#include <optional>
#include <string>

#include "platform/relative_path.h"

namespace quorl {

/// A drive path as this machine resolves it: a local directory, and a path below it.
struct DrivePlace {
  std::string root;  ///< "/" or a path without a trailing slash.
  RelativePath below;

  std::string LocalPath() const;
};

/// Which local directory stands behind which drive letter. Any thread may use it.
class Drives {
 public:
  /// At first only C: is mapped, to "/".
  Drives();

  bool Map(char letter, const std::string& directory);

  /// As DrivePathOf in real_machine.h.
  std::optional<std::string> DrivePathOf(const std::string& localDirectory);

  /// The drive path of an absolute local path that need not exist, by the mapped drive whose directory is nearest above
  /// it. Nothing when no drive covers it or it holds a backslash.
  std::optional<std::string> DrivePathOfText(const std::string& localPath) const;

  /// "X:\a\b", or "X:a\b", which is the same. Nothing for any other form, a letter without a drive, or components that
  /// could lead elsewhere.
  std::optional<DrivePlace> Resolve(const std::string& drivePath) const;

  /// The same for a target directory, which a sender may have named without a drive: it is then below drive C.
  std::optional<DrivePlace> ResolveTarget(const std::string& drivePath) const;

  /// The same; but where the rest of the path is none, the drive's own root. For what is asked about a whole disk.
  std::optional<DrivePlace> ResolveDisk(const std::string& drivePath) const;

 private:
  static constexpr size_t COUNT = 26;

  std::optional<std::string> ByLongestRoot(const std::string& localPath) const;

  mutable std::mutex mutex;
  std::array<std::string, COUNT> roots;  // By letter; empty where nothing is mapped.
};

}  // namespace quorl
