// What the target directory and the disk check of a receiver ask. A target need not exist yet: the file system that
// will hold it is that of the nearest directory above it.
#include "platform/posix/shell.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/posix/descriptor.h"
#include "platform/posix/file_system.h"
#include "platform/posix/user_folders.h"

namespace quorl {

namespace {

/// The directory or file `path` or, where nothing is there, the nearest directory above it; only to ask about it.
Descriptor NearestExisting(std::string path) {
  while (true) {
    Descriptor descriptor(open(path.c_str(), O_PATH | O_CLOEXEC));
    if (descriptor || path.size() <= 1) return descriptor;
    path.resize(std::max<size_t>(path.rfind('/'), 1));
  }
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
  return IsOnNetwork(NearestExisting(place->LocalPath()).Get()) ? DriveType::Remote : DriveType::Fixed;
}

std::optional<uint64_t> PosixShell::FreeBytes(const std::string& directory) {
  const auto place = drives.ResolveDisk(directory);
  if (!place) return std::nullopt;
  return FreeBytesAround(NearestExisting(place->LocalPath()).Get());
}

std::optional<uint64_t> PosixShell::FreeNames(const std::string& directory) {
  const auto place = drives.ResolveDisk(directory);
  if (!place) return std::nullopt;
  return FreeNamesAround(NearestExisting(place->LocalPath()).Get());
}

}  // namespace quorl
