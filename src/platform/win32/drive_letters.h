#pragma once

#include <array>
#include <mutex>
#include <optional>
#include <string>

namespace quorl {

/// The machine's drive letters, and those that a host has put another directory behind, for this library alone. Any
/// thread may use it.
///
/// A local path is given in the form that the system takes as it stands, "\\?\C:\a\b": it may be longer than 260
/// characters, and no part of it means a device.
class DriveLetters {
 public:
  bool Map(char letter, const std::string& directory);

  /// As DrivePathOf in real_machine.h; a letter that the machine uses is not free.
  std::optional<std::string> DrivePathOf(const std::string& localDirectory);

  /// The local path of "X:\a\b", or of "X:a\b", which is the same; slashes divide like backslashes. Nothing for any
  /// other form and for components that are no ordinary names.
  std::optional<std::wstring> Resolve(const std::string& drivePath) const;

  /// The same for a target directory, which a sender may have named without a drive: it is then on the current drive.
  std::optional<std::wstring> ResolveTarget(const std::string& drivePath) const;

  /// The same; but where the rest of the path is none, the drive's own root. For what is asked about a whole disk.
  std::optional<std::wstring> ResolveDisk(const std::string& drivePath) const;

 private:
  static constexpr size_t COUNT = 26;

  std::wstring RootOf(size_t index) const;

  mutable std::mutex mutex;
  // By letter, in the long form without a last backslash; empty where the letter is the machine's own.
  std::array<std::wstring, COUNT> mapped;
};

}  // namespace quorl
