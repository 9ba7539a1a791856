#include "cli/staging/tree.h"

#include <algorithm>

namespace quorl::cli {
namespace {

void ListInto(const Directory& directory, const std::string& prefix, StagedTree& tree) {
  const auto names = directory.Names();
  if (!names) {
    tree.readable = false;
    return;
  }
  if (names->empty() && !prefix.empty()) tree.emptyDirectories.push_back(prefix.substr(0, prefix.size() - 1));
  for (const std::string& name : *names) {
    const auto thing = directory.Look(name);
    if (thing && thing->kind == NamedThing::Kind::Directory) {
      ListInto(directory.Sub(name), prefix + name + "/", tree);
    } else if (thing && thing->kind == NamedThing::Kind::File && thing->hasOneName) {
      tree.files.push_back({prefix + name, thing->size});
    } else {
      tree.strange.push_back(prefix + name);
    }
  }
}

}  // namespace

StagedTree ListTree(const Directory& base) {
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

}  // namespace quorl::cli
