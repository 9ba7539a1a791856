// What the target directory and the disk check of a receiver ask. A target need not exist yet: the file system that
// will hold it is that of the nearest directory above it.
#include "platform/posix/shell.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>

#include "platform/posix/user_folders.h"

namespace quorl {

namespace {

// Of network file systems, those that linux/magic.h of every kernel names, and those that it does not.
constexpr uint32_t CIFS_MAGIC = 0xFF534D42;
constexpr uint32_t SMB2_MAGIC = 0xFE534D42;
constexpr uint32_t CEPH_MAGIC = 0x00C36400;
constexpr uint32_t FUSE_MAGIC = 0x65735546;
constexpr std::array<uint32_t, 10> NETWORK_FILE_SYSTEMS{
    NFS_SUPER_MAGIC, SMB_SUPER_MAGIC, CIFS_MAGIC,       SMB2_MAGIC, V9FS_MAGIC,
    AFS_SUPER_MAGIC, AFS_FS_MAGIC,    CODA_SUPER_MAGIC, CEPH_MAGIC, NCP_SUPER_MAGIC};

/// The path or, where nothing is there, the nearest directory above it.
std::string NearestExisting(std::string path) {
  struct stat status {};
  while (path.size() > 1 && stat(path.c_str(), &status) != 0) path.resize(std::max<size_t>(path.rfind('/'), 1));
  return path;
}

bool IsRemote(const std::string& path) {
  struct statfs fileSystem {};
  struct stat status {};
  if (statfs(path.c_str(), &fileSystem) != 0 || stat(path.c_str(), &status) != 0) return false;
  const auto type = static_cast<uint32_t>(fileSystem.f_type);
  // A user-space file system on a block device is a local disk in a foreign format; without one, what is behind it
  // cannot be told, and often is a network.
  if (type == FUSE_MAGIC) return major(status.st_dev) == 0;
  return std::find(NETWORK_FILE_SYSTEMS.begin(), NETWORK_FILE_SYSTEMS.end(), type) != NETWORK_FILE_SYSTEMS.end();
}

}  // namespace

SpecialFolder PosixShell::LookUpFolder(uint32_t folder) {
  if (!IsKnownFolder(folder)) return {};
  const auto path = UserFolder(folder);
  return {true, path ? drives.DrivePathOfText(*path) : std::nullopt};
}

std::optional<std::string> PosixShell::AccountName() {
  const auto account = CurrentAccount();
  return account ? std::optional(account->name) : std::nullopt;
}

std::optional<std::string> PosixShell::ComputerName() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0) return std::nullopt;
  return std::string(name.data());
}

DriveType PosixShell::DriveTypeOf(const std::string& directory) {
  const auto place = drives.ResolveDisk(directory);
  if (!place) return DriveType::NoRoot;
  return IsRemote(NearestExisting(place->LocalPath())) ? DriveType::Remote : DriveType::Fixed;
}

std::optional<uint64_t> PosixShell::FreeBytes(const std::string& directory) {
  const auto place = drives.ResolveDisk(directory);
  struct statvfs space {};
  if (!place || statvfs(NearestExisting(place->LocalPath()).c_str(), &space) != 0) return std::nullopt;
  const uint64_t blockSize = space.f_frsize;
  if (blockSize != 0 && space.f_bavail > std::numeric_limits<uint64_t>::max() / blockSize)
    return std::numeric_limits<uint64_t>::max();
  return space.f_bavail * blockSize;
}

}  // namespace quorl
