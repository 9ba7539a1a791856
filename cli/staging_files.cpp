// Files beneath a directory that other programs write in as well. A name is never used as a path: each component is
// opened in the directory before it and must be no link, so that nobody can lead what is read, made or removed to
// another place by swapping a directory for a link in time.
#include "cli/staging_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace quorl::cli {
namespace {

constexpr int DIRECTORY_FLAGS = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};

void ListInto(int directory, const std::string& prefix, StagedTree& tree) {
  const auto names = NamesIn(directory);
  if (!names) {
    tree.readable = false;
    return;
  }
  if (names->empty() && !prefix.empty()) tree.emptyDirectories.push_back(prefix.substr(0, prefix.size() - 1));
  for (const std::string& name : *names) {
    struct stat status {};
    const bool known = fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (known && S_ISDIR(status.st_mode)) {
      const FileHandle below(openat(directory, name.c_str(), DIRECTORY_FLAGS));
      if (below) {
        ListInto(below.Get(), prefix + name + "/", tree);
      } else {
        tree.readable = false;
      }
    } else if (known && S_ISREG(status.st_mode) && status.st_nlink == 1) {
      tree.files.push_back({prefix + name, static_cast<uint64_t>(status.st_size)});
    } else {
      tree.strange.push_back(prefix + name);
    }
  }
}

bool RemoveContents(int directory) {
  const auto names = NamesIn(directory);
  if (!names) return false;
  bool all = true;
  for (const std::string& name : *names) all = RemoveTree(directory, name) && all;
  return all;
}

}  // namespace

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
  std::swap(descriptor, other.descriptor);
  return *this;
}

FileHandle::~FileHandle() {
  if (descriptor < 0) return;
  const int error = errno;
  close(descriptor);
  errno = error;
}

std::optional<std::vector<std::string>> NamesIn(int directory) {
  // Reading moves the position of the descriptor that it reads from, so it gets one of its own.
  const int own = openat(directory, ".", DIRECTORY_FLAGS);
  const std::unique_ptr<DIR, CloseDirectory> stream(own < 0 ? nullptr : fdopendir(own));
  if (!stream) return std::nullopt;
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* found = readdir(stream.get())) {
    const std::string name = found->d_name;
    if (name != "." && name != "..") names.push_back(name);
    errno = 0;
  }
  if (errno != 0) return std::nullopt;
  return names;
}

StagedTree ListTree(int base) {
  StagedTree tree;
  ListInto(base, "", tree);
  std::sort(tree.files.begin(), tree.files.end(),
            [](const auto& left, const auto& right) { return left.name < right.name; });
  std::sort(tree.emptyDirectories.begin(), tree.emptyDirectories.end());
  return tree;
}

SplitName::SplitName(std::string_view name) {
  const size_t slash = name.rfind('/');
  if (slash != std::string_view::npos) directory = name.substr(0, slash);
  leaf = slash == std::string_view::npos ? name : name.substr(slash + 1);
}

FileHandle OpenDirectoryBeneath(int base, std::string_view name, WhenAbsent whenAbsent) {
  FileHandle directory(openat(base, ".", DIRECTORY_FLAGS));
  while (directory && !name.empty()) {
    const size_t end = std::min(name.find('/'), name.size());
    const std::string component(name.substr(0, end));
    name.remove_prefix(std::min(end + 1, name.size()));
    if (component.empty() || component == "." || component == "..") {
      errno = EINVAL;
      return {};
    }
    if (whenAbsent == WhenAbsent::Make && mkdirat(directory.Get(), component.c_str(), 0777) != 0 && errno != EEXIST)
      return {};
    directory = FileHandle(openat(directory.Get(), component.c_str(), DIRECTORY_FLAGS));
  }
  return directory;
}

FileHandle OpenFileBeneath(int base, const std::string& name) {
  const SplitName split(name);
  const FileHandle directory = OpenDirectoryBeneath(base, split.directory);
  if (!directory) return {};
  FileHandle file(
      openat(directory.Get(), split.leaf.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.Get(), &status) != 0) return {};
  if (S_ISREG(status.st_mode) && status.st_nlink == 1) return file;
  errno = EPERM;
  return {};
}

bool RemoveTree(int parent, const std::string& name) {
  if (unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) return true;
  const FileHandle directory(openat(parent, name.c_str(), DIRECTORY_FLAGS));
  const bool emptied = directory && RemoveContents(directory.Get());
  return emptied && (unlinkat(parent, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT);
}

std::string WhyNotBeneath(int error) {
  if (error == ENOTDIR || error == ELOOP) return "a link or a file stands where its directory should be";
  if (error == EXDEV) return "its directory is on another file system";
  return std::strerror(error);
}

}  // namespace quorl::cli
