#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quorl {

/// What a lookup of a special folder gave.
struct SpecialFolder {
  bool known = false;               ///< The machine knows the identifier.
  std::optional<std::string> path;  ///< Its directory, "C:\..."; nothing when the folder has none.
};

/// Drive types, by the numbers that the system's own debug lines show.
enum class DriveType : uint32_t {
  Unknown = 0,
  NoRoot = 1,
  Removable = 2,
  Fixed = 3,
  Remote = 4,
  CdRom = 5,
  RamDisk = 6
};

struct FreeClusters {
  uint32_t freeClusters = 0;
  uint32_t bytesPerSector = 0;
  uint32_t sectorsPerCluster = 0;
};

/// Who is logged on to this machine, where the special folders are, what the drives hold. Any thread may use it.
class Shell {
 public:
  virtual ~Shell() = default;

  /// Whether this machine's platform flag on the wire is 1: on the NT family of Windows, and on Linux.
  virtual bool IsNtPlatform() = 0;

  /// `folder`: a special-folder identifier; 0 the desktop, 25 the desktop common to all users.
  virtual SpecialFolder LookUpFolder(uint32_t folder) = 0;

  virtual std::optional<std::string> AccountName() = 0;  ///< The account that runs the process.
  virtual std::optional<std::string> ComputerName() = 0;

  /// A value of the machine's logon settings, by key (under the machine-wide root) and name; nothing where there is
  /// none.
  virtual std::optional<std::string> ReadLogonValue(const std::string& key, const std::string& name) = 0;

  /// 8-bit text taken through the machine's wide characters and back, as a name from a sender of the older family is.
  virtual std::string ThroughWideText(std::string text) = 0;

  /// The kind of drive that holds `directory`, or its nearest existing parent directory.
  virtual DriveType DriveTypeOf(const std::string& directory) = 0;

  /// Whether the machine has the extended free-space query. May fail at one time and succeed at another.
  virtual bool HasExtendedFreeSpaceQuery() = 0;

  /// The extended query: bytes that the caller may still use on the drive that holds `directory`.
  virtual std::optional<uint64_t> FreeBytes(const std::string& directory) = 0;

  /// Files and directories that can still be made on that drive; nothing where only their bytes count.
  virtual std::optional<uint64_t> FreeNames(const std::string& /*directory*/) { return std::nullopt; }

  /// The old query, by clusters.
  virtual std::optional<FreeClusters> QueryFreeClusters(const std::string& directory) = 0;
};

}  // namespace quorl
