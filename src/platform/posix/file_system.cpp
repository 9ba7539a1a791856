// Which file systems count as local disks, for the disk check of a receiver and for the command before a transfer
// comes.
#include "platform/posix/file_system.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <limits>

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

}  // namespace

bool IsOnNetwork(int descriptor) {
  struct statfs fileSystem {};
  struct stat status {};
  if (fstatfs(descriptor, &fileSystem) != 0 || fstat(descriptor, &status) != 0) return false;
  const auto type = static_cast<uint32_t>(fileSystem.f_type);
  // A user-space file system on a block device is a local disk in a foreign format; without one, what is behind it
  // cannot be told, and often is a network.
  if (type == FUSE_MAGIC) return major(status.st_dev) == 0;
  return std::find(NETWORK_FILE_SYSTEMS.begin(), NETWORK_FILE_SYSTEMS.end(), type) != NETWORK_FILE_SYSTEMS.end();
}

std::optional<uint64_t> FreeBytesAround(int descriptor) {
  struct statvfs space {};
  if (fstatvfs(descriptor, &space) != 0) return std::nullopt;
  const uint64_t blockSize = space.f_frsize;
  if (blockSize != 0 && space.f_bavail > std::numeric_limits<uint64_t>::max() / blockSize)
    return std::numeric_limits<uint64_t>::max();
  return space.f_bavail * blockSize;
}

std::optional<uint64_t> FreeNamesAround(int descriptor) {
  struct statvfs space {};
  // File systems that make inodes as they are needed have none to count.
  if (fstatvfs(descriptor, &space) != 0 || space.f_files == 0) return std::nullopt;
  return space.f_favail;
}

}  // namespace quorl
