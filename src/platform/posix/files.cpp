// Files and directories. What a sender's host names is opened as named; what came from the network goes through
// beneath.h. Nothing but regular files is opened for good: a FIFO or device would stop a thread, or do worse.
#include "platform/posix/files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "platform/posix/directory_names.h"
#include "platform/posix/open_files.h"

namespace quorl {

namespace {

constexpr int SAFE_FLAGS = O_NONBLOCK | O_CLOEXEC | O_NOCTTY;

Unsent KindOfUnsent(mode_t mode) {
  if (S_ISDIR(mode)) return Unsent::LinkToDirectory;
  if (S_ISFIFO(mode)) return Unsent::Fifo;
  if (S_ISSOCK(mode)) return Unsent::Socket;
  return S_ISBLK(mode) || S_ISCHR(mode) ? Unsent::Device : Unsent::Other;
}

/// What the directory's entry is for a sender, or nothing when it has gone.
std::optional<DirectoryEntry> EntryFor(int directory, const std::string& name) {
  struct stat status {};
  if (fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  if (S_ISDIR(status.st_mode)) return DirectoryEntry{name, true};
  if (S_ISLNK(status.st_mode) && fstatat(directory, name.c_str(), &status, 0) != 0)
    return DirectoryEntry{name, false, Unsent::BrokenLink};
  return DirectoryEntry{name, false, S_ISREG(status.st_mode) ? Unsent::No : KindOfUnsent(status.st_mode)};
}

/// A file, or a disk that the host names as one; none that a walk meets.
bool HasLength(mode_t mode) {
  return S_ISREG(mode) || S_ISBLK(mode);
}

/// A regular file with one name. If not, errno says why.
bool IsPlain(const Descriptor& descriptor) {
  struct stat status {};
  if (fstat(descriptor.Get(), &status) != 0) return false;
  errno = EPERM;
  return S_ISREG(status.st_mode) && status.st_nlink == 1;
}

}  // namespace

PathKind PosixFiles::KindOf(const std::string& path) {
  const auto place = drives.Resolve(path);
  struct stat status {};
  if (!place || stat(place->LocalPath().c_str(), &status) != 0) return PathKind::Missing;
  if (HasLength(status.st_mode)) return PathKind::File;
  return S_ISDIR(status.st_mode) ? PathKind::Directory : PathKind::Other;
}

std::optional<std::vector<DirectoryEntry>> PosixFiles::ListDirectory(const std::string& path) {
  const auto place = drives.Resolve(path);
  if (!place) return std::nullopt;
  const Descriptor directory(open(place->LocalPath().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const auto names = directory ? NamesIn(directory.Get()) : std::nullopt;
  if (!names) return std::nullopt;
  std::vector<DirectoryEntry> entries;
  for (const std::string& name : *names)
    if (auto entry = EntryFor(directory.Get(), name)) entries.push_back(std::move(*entry));
  return entries;
}

std::unique_ptr<InputFile> PosixFiles::OpenInput(const std::string& path) {
  const auto place = drives.Resolve(path);
  if (!place) return nullptr;
  Descriptor descriptor(open(place->LocalPath().c_str(), O_RDONLY | SAFE_FLAGS));
  struct stat status {};
  if (!descriptor || fstat(descriptor.Get(), &status) != 0 || !HasLength(status.st_mode)) return nullptr;
  posix_fadvise(descriptor.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  return std::make_unique<PosixInputFile>(std::move(descriptor));
}

// Links on the way are the user's own.
void PosixFiles::MakeTarget(const std::string& base) {
  const auto place = drives.ResolveTarget(base);
  std::error_code ignored;
  if (place) std::filesystem::create_directories(place->LocalPath(), ignored);
}

void PosixFiles::CreateDirectories(const std::string& base, const RelativePath& name) {
  const auto place = drives.ResolveTarget(base);
  if (!place) return;
  const Descriptor directory = OpenBase(place->LocalPath());
  if (directory) MakeDirectoriesBeneath(resolver, directory.Get(), name);
}

bool PosixFiles::CanOpenOutput(const std::string& base, const RelativePath& name) {
  return static_cast<bool>(OpenRegular(base, name, O_WRONLY));
}

OpenedOutput PosixFiles::OpenOutput(const std::string& base, const RelativePath& name, WhenMissing whenMissing) {
  Descriptor descriptor = OpenRegular(base, name, O_WRONLY | (whenMissing == WhenMissing::Create ? O_CREAT : 0));
  if (!descriptor) return {nullptr, OutcomeOf(errno)};
  return {std::make_unique<PosixOutputFile>(std::move(descriptor)), WriteOutcome::Done};
}

/// A regular file beneath the target that has no other name: through a hard link one outside could be written. What
/// stands there is looked at first, since to open a device can do things by itself. On failure errno says why.
Descriptor PosixFiles::OpenRegular(const std::string& base, const RelativePath& name, int flags) const {
  errno = ENOENT;
  const auto place = drives.ResolveTarget(base);
  if (!place) return {};
  const Descriptor directory = OpenBase(place->LocalPath());
  if (!directory) return {};
  const Descriptor there = OpenBeneath(resolver, directory.Get(), name, O_PATH | O_CLOEXEC);
  Descriptor descriptor;
  if (!there || IsPlain(there)) descriptor = OpenBeneath(resolver, directory.Get(), name, flags | SAFE_FLAGS, 0666);
  // It may have been replaced in between.
  if (!descriptor || IsPlain(descriptor)) return descriptor;
  errno = EPERM;
  return {};
}

}  // namespace quorl
