// From staging to the final names. With `sync` a power cut leaves each name with the old file or the whole new one: the
// new file's bytes are on the disk before its name is, and the directory that holds the name afterwards.
#include "cli/staging/move.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "cli/staging/staging.h"

namespace quorl::cli {
namespace {

constexpr size_t COPIED_AT_ONCE = size_t{1} << 20;
constexpr int MOST_NUMBERS = 9999;

/// The directories on both sides of the file being moved. Files come sorted, so that most have the directory of the
/// one before.
struct Place {
  std::string name;
  Directory from;
  Directory to;
};

/// What is moved: a file, or a symbolic link.
struct Thing {
  std::string name;
  uint64_t size = 0;
  std::string leadsTo;  ///< Of a link; empty: a file.

  bool IsLink() const { return !leadsTo.empty(); }
};

/// "notes (2).txt" for "notes.txt".
std::string Numbered(const std::string& leaf, int number) {
  const size_t dot = leaf.rfind('.');
  const size_t end = dot == std::string::npos || dot == 0 ? leaf.size() : dot;
  return fmt::format("{} ({}){}", leaf.substr(0, end), number, leaf.substr(end));
}

bool HaveSameContents(OpenedFile& left, OpenedFile& right) {
  std::vector<char> one(COPIED_AT_ONCE), other(COPIED_AT_ONCE);
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
    for (const StagedTree::File& file : tree.files) Move({file.name, file.size, ""});
    for (const StagedTree::Link& link : tree.links) MoveLink(link);
    if (rules.sync) SyncDirectories();
    return std::move(report);
  }

 private:
  void FindTaken() {
    for (const StagedTree::File& file : tree.files) LookWhetherTaken({file.name, file.size, ""});
    for (const StagedTree::Link& link : tree.links) LookWhetherTaken({link.name, 0, link.leadsTo});
  }

  void LookWhetherTaken(const Thing& thing) {
    const SplitName split(thing.name);
    const Directory to = target.Sub(split.directory);
    if (!to || !to.Look(split.leaf)) return;
    place = {split.directory, staging.Sub(split.directory), to};
    if (!IsAlike(split.leaf, thing)) report.taken.push_back(thing.name);
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

  /// Links that were delivered before count as what they are; any other may lead anywhere.
  bool IsSafe(const StagedTree::Link& link) const {
    for (const std::string& name : link.through)
      if (!target.Sub(name)) return false;
    const SplitName split(link.to);
    const Directory directory = target.Sub(split.directory);
    const auto there = directory ? directory.Look(split.leaf) : std::nullopt;
    return there && (there->kind == NamedThing::Kind::File || there->kind == NamedThing::Kind::Directory ||
                     made.contains(link.to));
  }

  void MoveLink(const StagedTree::Link& link) {
    if (!link.why.empty()) {
      report.refused.push_back({link.name, link.why});
      return;
    }
    if (!IsSafe(link)) {
      report.refused.push_back({link.name, "what it leads to is not there, or something else is"});
      return;
    }
    const SplitName split(link.name);
    const Directory from = staging.Sub(split.directory, WhenAbsent::Make);
    const SystemError error = from ? from.MakeLink(split.leaf, link.leadsTo) : from.Why();
    if (error.kind == SystemError::Kind::NotHere) {
      report.unmade.push_back(link.name);
    } else if (error) {
      Refuse(link.name, error);
    } else {
      Move({link.name, 0, link.leadsTo});
      const Directory to = target.Sub(split.directory);
      if (to && to.LinkAt(split.leaf) == link.leadsTo) made.insert(link.name);
    }
  }

  void Move(const Thing& file) {
    const SplitName split(file.name);
    if (IsReservedName(file.name)) {
      report.refused.push_back({file.name, "the name is reserved"});
      return;
    }
    if (const SystemError error = OpenPlace(split.directory)) {
      Refuse(file.name, error);
      return;
    }
    if (IsAlike(split.leaf, file)) {
      report.alike.push_back(file.name);
      return;
    }
    std::string as = split.leaf;
    SystemError error = rules.sync && !file.IsLink() ? Sync(split.leaf) : SystemError();
    if (!error) error = MoveTo(split.leaf, as);
    // Another receiver of this machine may have brought it since.
    if (error.kind == SystemError::Kind::Exists && IsAlike(split.leaf, file)) {
      report.alike.push_back(file.name);
      return;
    }
    if (error.kind == SystemError::Kind::Exists && rules.existing == Existing::Rename)
      error = MoveToNumbered(split.leaf, as);
    if (!error) {
      const std::string prefix = split.directory.empty() ? "" : split.directory + "/";
      report.moved.push_back({file.name, prefix + as, file.IsLink()});
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

  /// Whether the same stands under the name already.
  bool IsAlike(const std::string& leaf, const Thing& thing) const {
    if (thing.IsLink()) return place.to.LinkAt(leaf) == thing.leadsTo;
    const auto there = place.to.Look(leaf);
    if (!there || there->kind != NamedThing::Kind::File || there->size != thing.size) return false;
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
  std::set<std::string> made;  ///< Links that stand under their names.
  MoveReport report;
};

}  // namespace

MoveReport MoveTree(const Directory& staging, const Directory& target, const StagedTree& tree, const MoveRules& rules) {
  return Mover(staging, target, tree, rules).Run();
}

}  // namespace quorl::cli
