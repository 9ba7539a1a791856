// The life of staging directories: lock, stale ones, preparation, removal.
#include "cli/staging.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <linux/magic.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "cli/escape.h"
#include "cli/outcome.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view RESERVED = ".quorl-";
constexpr size_t NUMBER_LENGTH = 16;

// Another receiver holds the lock alone only for as long as it removes what is stale.
constexpr auto LOCK_LIMIT = 10s;
constexpr auto LOCK_POLL = 20ms;

// Of network file systems, those that linux/magic.h of every kernel names, and those that it does not.
constexpr uint32_t CIFS_MAGIC = 0xFF534D42;
constexpr uint32_t SMB2_MAGIC = 0xFE534D42;
constexpr uint32_t CEPH_MAGIC = 0x00C36400;
constexpr uint32_t FUSE_MAGIC = 0x65735546;
constexpr std::array<uint32_t, 9> NETWORK_FILE_SYSTEMS{NFS_SUPER_MAGIC, SMB_SUPER_MAGIC,  CIFS_MAGIC,
                                                       SMB2_MAGIC,      V9FS_MAGIC,       AFS_SUPER_MAGIC,
                                                       AFS_FS_MAGIC,    CODA_SUPER_MAGIC, CEPH_MAGIC};

Failure Unusable(Exit code, const std::string& directory, const std::string& why) {
  return {code,
          fmt::format("nothing can be received into \"{}\"", Escape(directory)),
          why,
          {code == Exit::NoRoom ? "Choose a local directory with --to."
                                : "Name a directory that exists and can be written."}};
}

/// What the library would refuse a transfer for, found before one comes.
bool IsOnNetwork(int directory) {
  struct statfs fileSystem {};
  struct stat status {};
  if (fstatfs(directory, &fileSystem) != 0 || fstat(directory, &status) != 0) return false;
  const auto type = static_cast<uint32_t>(fileSystem.f_type);
  // A file system of a user's program that has a block device is a local disk in a foreign format.
  if (type == FUSE_MAGIC) return major(status.st_dev) == 0;
  return std::find(NETWORK_FILE_SYSTEMS.begin(), NETWORK_FILE_SYSTEMS.end(), type) != NETWORK_FILE_SYSTEMS.end();
}

std::string NewName() {
  uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
    number = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  return fmt::format("{}{:0{}x}", RESERVED, number, NUMBER_LENGTH);
}

bool IsStagingName(std::string_view name) {
  return name.size() == RESERVED.size() + NUMBER_LENGTH && name.starts_with(RESERVED) &&
         name.find_first_not_of("0123456789abcdef", RESERVED.size()) == std::string_view::npos;
}

char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

bool IsReservedName(std::string_view name) {
  // In any case of letters, for file systems that do not tell them apart.
  return name.size() >= RESERVED.size() &&
         std::equal(RESERVED.begin(), RESERVED.end(), name.begin(), [](char a, char b) { return a == ToLower(b); });
}

Staging::Staging(const std::string& text) {
  std::error_code error;
  directory = std::filesystem::canonical(text, error).native();
  if (error) throw Unusable(Exit::LocalFiles, text, error.message());
  target = FileHandle(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!target) throw Unusable(Exit::LocalFiles, text, std::strerror(errno));
  if (IsOnNetwork(target.Get())) {
    throw Unusable(Exit::NoRoom, text,
                   "it is on a network file system; transfers go to local disks only (status 1002)");
  }
  TakeLock();
}

Staging::~Staging() {
  Discard();
}

void Staging::TakeLock() {
  if (flock(target.Get(), LOCK_EX | LOCK_NB) == 0) RemoveStale();
  const auto deadline = std::chrono::steady_clock::now() + LOCK_LIMIT;
  // A file system without locks has nobody who removes anything either.
  while (flock(target.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    if (std::chrono::steady_clock::now() > deadline)
      throw Unusable(Exit::LocalFiles, directory, "another program has locked it");
    std::this_thread::sleep_for(LOCK_POLL);
  }
}

void Staging::RemoveStale() {
  for (const std::string& name : NamesIn(target.Get()).value_or(std::vector<std::string>())) {
    struct stat status {};
    const bool ours = IsStagingName(name) && fstatat(target.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                      S_ISDIR(status.st_mode) && status.st_uid == geteuid();
    if (ours && RemoveTree(target.Get(), name)) ++staleRemoved;
  }
}

uint64_t Staging::FreeBytes() const {
  struct statvfs space {};
  return fstatvfs(target.Get(), &space) == 0 ? uint64_t{space.f_bavail} * space.f_frsize : 0;
}

void Staging::Prepare(const std::function<bool(const std::string& path)>& use) {
  ++prepared;
  next = NewName();
  if (mkdirat(target.Get(), next.c_str(), 0700) != 0) throw Unusable(Exit::LocalFiles, directory, std::strerror(errno));
  const bool usable = use(directory + "/" + next);
  unlinkat(target.Get(), next.c_str(), AT_REMOVEDIR);
  if (!usable) throw Unusable(Exit::LocalFiles, directory, "it has been removed, or its name holds a backslash");
}

void Staging::Begin() {
  Discard();
  current = next;
  // The library may have made it already, or will find it.
  mkdirat(target.Get(), current.c_str(), 0700);
}

FileHandle Staging::Open() const {
  return OpenDirectoryBeneath(target.Get(), current);
}

bool Staging::Holds(const std::string& name) const {
  const FileHandle staged = Open();
  return staged && faccessat(staged.Get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

bool Staging::Discard() {
  return current.empty() || RemoveTree(target.Get(), std::exchange(current, ""));
}

}  // namespace quorl::cli
