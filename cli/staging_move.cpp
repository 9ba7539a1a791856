// From staging to the final names. With `sync` a power cut leaves each name with the old file or the whole new one: the
// new file's bytes are on the disk before its name is, and the directory that holds the name afterwards.
#include "cli/staging_move.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <set>

#include "cli/staging.h"

namespace quorl::cli {
namespace {

constexpr int MOST_NUMBERS = 9999;

/// The directories on both sides of the file being moved. Files come sorted, so that most have the directory of the
/// one before.
struct Place {
  std::string name;
  FileHandle from;
  FileHandle to;
};

/// "notes (2).txt" for "notes.txt".
std::string Numbered(const std::string& leaf, int number) {
  const size_t dot = leaf.rfind('.');
  const size_t end = dot == std::string::npos || dot == 0 ? leaf.size() : dot;
  return fmt::format("{} ({}){}", leaf.substr(0, end), number, leaf.substr(end));
}

bool Sync(const FileHandle& handle) {
  return handle && fsync(handle.Get()) == 0;
}

class Mover {
 public:
  Mover(int staging, int target, const StagedTree& tree, const MoveRules& rules)
      : staging(staging), target(target), tree(tree), rules(rules) {}

  MoveReport Run() {
    if (rules.existing == Existing::Fail) FindTaken();
    if (!report.taken.empty()) return std::move(report);
    for (const std::string& name : tree.emptyDirectories) MakeDirectory(name);
    for (const StagedTree::File& file : tree.files) Move(file);
    if (rules.sync) SyncDirectories();
    return std::move(report);
  }

 private:
  void FindTaken() {
    for (const StagedTree::File& file : tree.files) {
      const SplitName split(file.name);
      const FileHandle directory = OpenDirectoryBeneath(target, split.directory);
      struct stat status {};
      if (directory && fstatat(directory.Get(), split.leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        report.taken.push_back(file.name);
    }
  }

  /// Every directory that got a name, and those above it, which may be new as well.
  void SyncDirectories() {
    std::set<std::string> touched{""};
    const auto touch = [&](std::string name) {
      while (!name.empty() && touched.insert(name).second) name = SplitName(name).directory;
    };
    for (const std::string& name : tree.emptyDirectories) touch(name);
    for (const MoveReport::Moved& moved : report.moved) touch(SplitName(moved.name).directory);
    for (const std::string& name : touched) {
      if (!Sync(OpenDirectoryBeneath(target, name))) report.synced = false;
    }
  }

  void MakeDirectory(const std::string& name) {
    if (IsReservedName(name)) {
      report.refused.push_back({name, "the name is reserved"});
    } else if (!OpenDirectoryBeneath(target, name, WhenAbsent::Make)) {
      report.refused.push_back({name, WhyNotBeneath(errno)});
    }
  }

  void Move(const StagedTree::File& file) {
    const SplitName split(file.name);
    if (IsReservedName(file.name)) {
      report.refused.push_back({file.name, "the name is reserved"});
      return;
    }
    if (!OpenPlace(split.directory)) {
      report.refused.push_back({file.name, WhyNotBeneath(errno)});
      return;
    }
    std::string as = split.leaf;
    const bool stored = !rules.sync || Sync(OpenFileBeneath(place.from.Get(), split.leaf));
    const int error = stored ? MoveTo(split.leaf, as) : errno;
    if (error == 0) {
      const std::string prefix = split.directory.empty() ? "" : split.directory + "/";
      report.moved.push_back({file.name, prefix + as});
      report.bytes += file.size;
    } else if (error == EEXIST && rules.existing == Existing::Skip) {
      report.skipped.push_back(file.name);
    } else {
      report.refused.push_back(
          {file.name, error == EISDIR ? "something else than a file has its name" : WhyNotBeneath(error)});
    }
  }

  bool OpenPlace(const std::string& directory) {
    if (place.from && place.to && place.name == directory) return true;
    place = {directory, OpenDirectoryBeneath(staging, directory), {}};
    if (place.from) place.to = OpenDirectoryBeneath(target, directory, WhenAbsent::Make);
    return place.from && place.to;
  }

  /// 0, and in `as` the name that it got, or an errno.
  int MoveTo(const std::string& leaf, std::string& as) {
    if (rules.existing == Existing::Overwrite) return MoveOver(leaf);
    int error = MoveToFreeName(leaf, as);
    for (int number = 1; error == EEXIST && rules.existing == Existing::Rename && number <= MOST_NUMBERS; ++number) {
      as = Numbered(leaf, number);
      error = MoveToFreeName(leaf, as);
    }
    return error;
  }

  /// A regular file or a link goes; anything else that has the name stays.
  int MoveOver(const std::string& leaf) {
    struct stat status {};
    const bool exists = fstatat(place.to.Get(), leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (exists && !S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) return EISDIR;
    return renameat(place.from.Get(), leaf.c_str(), place.to.Get(), leaf.c_str()) == 0 ? 0 : errno;
  }

  int MoveToFreeName(const std::string& leaf, const std::string& as) {
    if (kernelNoReplace) {
      if (renameat2(place.from.Get(), leaf.c_str(), place.to.Get(), as.c_str(), RENAME_NOREPLACE) == 0) return 0;
      // An old kernel, a filter of system calls, or a file system that does not know the flag.
      if (errno != ENOSYS && errno != EINVAL && errno != EPERM) return errno;
      kernelNoReplace = false;
    }
    // A second name is given to free names only as well; then the first one goes.
    if (linkat(place.from.Get(), leaf.c_str(), place.to.Get(), as.c_str(), 0) != 0) return errno;
    unlinkat(place.from.Get(), leaf.c_str(), 0);
    return 0;
  }

  const int staging;
  const int target;
  const StagedTree& tree;
  const MoveRules& rules;
  bool kernelNoReplace = rules.kernelNoReplace;
  Place place;
  MoveReport report;
};

}  // namespace

MoveReport MoveTree(int staging, int target, const StagedTree& tree, const MoveRules& rules) {
  return Mover(staging, target, tree, rules).Run();
}

}  // namespace quorl::cli
