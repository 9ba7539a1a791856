// From staging to the final names. With `sync` a power cut leaves each name with the old file or the whole new one: the
// new file's bytes are on the disk before its name is, and the directory that holds the name afterwards.
#include "cli/staging/move.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "cli/staging/staging.h"

namespace quorl::cli {
namespace {

constexpr size_t PIECE = size_t{1} << 20;
constexpr int MOST_NUMBERS = 9999;

/// The directories on both sides of the file being moved. Files come sorted, so that most have the directory of the
/// one before.
struct Place {
  std::string name;
  Directory from;
  Directory to;
};

/// "notes (2).txt" for "notes.txt".
std::string Numbered(const std::string& leaf, int number) {
  const size_t dot = leaf.rfind('.');
  const size_t end = dot == std::string::npos || dot == 0 ? leaf.size() : dot;
  return fmt::format("{} ({}){}", leaf.substr(0, end), number, leaf.substr(end));
}

bool HaveSameContents(OpenedFile& left, OpenedFile& right) {
  std::vector<char> one(PIECE), other(PIECE);
  while (true) {
    const auto count = left.Read(one);
    if (!count || right.Read(other) != count ||
        !std::equal(one.begin(), one.begin() + static_cast<std::ptrdiff_t>(*count), other.begin()))
      return false;
    if (*count < one.size()) return true;
  }
}

class Mover {
 public:
  Mover(const Directory& staging, const Directory& target, const StagedTree& tree, const MoveRules& rules)
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
      const Directory to = target.Sub(split.directory);
      if (!to || !to.Look(split.leaf)) continue;
      place = {split.directory, staging.Sub(split.directory), to};
      if (!IsAlike(split.leaf, file.size)) report.taken.push_back(file.name);
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
      const Directory directory = target.Sub(name);
      if (!directory || directory.Sync()) report.synced = false;
    }
  }

  void MakeDirectory(const std::string& name) {
    if (IsReservedName(name)) {
      report.refused.push_back({name, "the name is reserved"});
    } else if (const Directory made = target.Sub(name, WhenAbsent::Make); !made) {
      Refuse(name, made.Why());
    }
  }

  void Refuse(const std::string& name, const SystemError& error) {
    report.refused.push_back({name, error.text});
    report.hadNoRoom = report.hadNoRoom || error.kind == SystemError::Kind::NoRoom;
  }

  void Move(const StagedTree::File& file) {
    const SplitName split(file.name);
    if (IsReservedName(file.name)) {
      report.refused.push_back({file.name, "the name is reserved"});
      return;
    }
    if (const SystemError error = OpenPlace(split.directory)) {
      Refuse(file.name, error);
      return;
    }
    if (IsAlike(split.leaf, file.size)) {
      report.alike.push_back(file.name);
      return;
    }
    std::string as = split.leaf;
    SystemError error = rules.sync ? Sync(split.leaf) : SystemError();
    if (!error) error = MoveTo(split.leaf, as);
    // Another receiver of this machine may have brought it since.
    if (error.kind == SystemError::Kind::Exists && IsAlike(split.leaf, file.size)) {
      report.alike.push_back(file.name);
      return;
    }
    if (error.kind == SystemError::Kind::Exists && rules.existing == Existing::Rename)
      error = MoveToNumbered(split.leaf, as);
    if (!error) {
      const std::string prefix = split.directory.empty() ? "" : split.directory + "/";
      report.moved.push_back({file.name, prefix + as});
      report.bytes += file.size;
    } else if (error.kind == SystemError::Kind::Exists && rules.existing == Existing::Skip) {
      report.skipped.push_back(file.name);
    } else {
      Refuse(file.name, error);
    }
  }

  SystemError OpenPlace(const std::string& directory) {
    if (place.from && place.to && place.name == directory) return {};
    place = {directory, staging.Sub(directory), {}};
    if (!place.from) return place.from.Why();
    place.to = target.Sub(directory, WhenAbsent::Make);
    return place.to.Why();
  }

  /// Whether a file with the same contents stands under the name already.
  bool IsAlike(const std::string& leaf, uint64_t size) const {
    const auto there = place.to.Look(leaf);
    if (!there || there->kind != NamedThing::Kind::File || there->size != size) return false;
    OpenedFile ours = place.from.Read(leaf);
    OpenedFile theirs = place.to.Read(leaf);
    return ours && theirs && HaveSameContents(ours, theirs);
  }

  SystemError Sync(const std::string& leaf) const {
    const OpenedFile file = place.from.Read(leaf);
    return file ? file.Sync() : file.Why();
  }

  SystemError MoveTo(const std::string& leaf, const std::string& as) const {
    if (rules.existing == Existing::Overwrite) return MoveOver(leaf);
    return place.from.Move(leaf, place.to, as, rules.inOneStep ? OntoName::Free : OntoName::FreeByLink);
  }

  /// `as` becomes the name that it got.
  SystemError MoveToNumbered(const std::string& leaf, std::string& as) const {
    SystemError error;
    for (int number = 1; number <= MOST_NUMBERS; ++number) {
      as = Numbered(leaf, number);
      error = MoveTo(leaf, as);
      if (error.kind != SystemError::Kind::Exists) break;
    }
    return error;
  }

  /// A regular file or a link goes; anything else that has the name stays.
  SystemError MoveOver(const std::string& leaf) const {
    const auto there = place.to.Look(leaf);
    const bool mayGo = !there || there->kind == NamedThing::Kind::File || there->kind == NamedThing::Kind::Link;
    if (!mayGo) return {SystemError::Kind::Other, 0, "something else than a file has its name"};
    return place.from.Move(leaf, place.to, leaf, OntoName::Any);
  }

  const Directory& staging;
  const Directory& target;
  const StagedTree& tree;
  const MoveRules& rules;
  Place place;
  MoveReport report;
};

}  // namespace

MoveReport MoveTree(const Directory& staging, const Directory& target, const StagedTree& tree, const MoveRules& rules) {
  return Mover(staging, target, tree, rules).Run();
}

}  // namespace quorl::cli
