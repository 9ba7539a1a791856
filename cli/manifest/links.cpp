#include "cli/manifest/links.h"

#include <algorithm>
#include <map>
#include <utility>

#include "cli/staging/staging.h"

namespace quorl::cli {
namespace {

constexpr const char* LEADS_OUT = "leads out of what is delivered";

/// "a/b" and "c" as "a/b/c".
std::string Below(const std::string& directory, std::string_view name) {
  return directory.empty() ? std::string(name) : directory + "/" + std::string(name);
}

}  // namespace

Delivered::Delivered(const Manifest& manifest) {
  for (const ManifestEntry& file : manifest.files) {
    files.insert(file.name);
    AddParents(file.name);
  }
  for (const std::string& name : manifest.emptyDirectories) {
    directories.insert(name);
    AddParents(name);
  }
  for (const ManifestLink& link : manifest.links) {
    links.insert(link.name);
    AddParents(link.name);
  }
}

void Delivered::AddParents(std::string_view name) {
  for (size_t end = name.rfind('/'); end != std::string_view::npos; end = name.rfind('/')) {
    name = name.substr(0, end);
    if (!directories.emplace(name).second) return;
  }
}

StagedTree::Link Delivered::Follow(const ManifestLink& link) const {
  StagedTree::Link result{link.name, link.leadsTo, {}, {}, {}};
  const auto refuse = [&result](const char* why) {
    result.why = why;
    return result;
  };
  if (IsReservedName(link.name)) return refuse("the name is reserved");
  if (link.leadsTo.starts_with('/')) return refuse(LEADS_OUT);
  std::string at = SplitName(link.name).directory;
  std::string_view rest = link.leadsTo;
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('/'), rest.size());
    const std::string_view part = rest.substr(0, end);
    rest.remove_prefix(end);
    const bool isLast = rest.empty();
    rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
    if (part == "..") {
      if (at.empty()) return refuse(LEADS_OUT);
      at = SplitName(at).directory;
    } else if (part != ".") {
      at = Below(at, part);
    }
    if (isLast) break;
    if (links.contains(at)) return refuse("leads through another link");
    if (!at.empty() && !directories.contains(at)) return refuse("leads to nothing that is delivered");
    if (!at.empty()) result.through.push_back(at);
  }
  // The directory that everything is delivered into holds more than that.
  if (at.empty()) return refuse(LEADS_OUT);
  if (!files.contains(at) && !directories.contains(at) && !links.contains(at))
    return refuse("leads to nothing that is delivered");
  result.to = at;
  return result;
}

std::vector<StagedTree::Link> LinksOf(const Manifest& manifest) {
  std::vector<StagedTree::Link> ordered;
  if (manifest.links.empty()) return ordered;
  const Delivered delivered(manifest);
  std::map<std::string, StagedTree::Link> waiting;
  std::set<std::string> refused;
  for (const ManifestLink& link : manifest.links) waiting.emplace(link.name, delivered.Follow(link));
  while (!waiting.empty()) {
    // From any of them along what it leads to, until there is one that none has to wait for.
    std::vector<std::string> chain{waiting.begin()->first};
    std::set<std::string> seen{chain.front()};
    while (true) {
      StagedTree::Link& link = waiting.at(chain.back());
      if (!waiting.contains(link.to)) break;
      if (!seen.insert(link.to).second) {
        link.why = "leads to itself";
        break;
      }
      chain.push_back(link.to);
    }
    for (auto name = chain.rbegin(); name != chain.rend(); ++name) {
      StagedTree::Link link = waiting.extract(*name).mapped();
      if (link.why.empty() && refused.contains(link.to)) link.why = "leads to a link that is left out";
      if (!link.why.empty()) refused.insert(link.name);
      ordered.push_back(std::move(link));
    }
  }
  return ordered;
}

}  // namespace quorl::cli
