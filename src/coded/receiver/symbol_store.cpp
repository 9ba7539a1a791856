#include "coded/receiver/symbol_store.h"

#include <algorithm>

namespace quorl {

namespace {

constexpr uint32_t GroupsOf(uint32_t bytes) {
  return static_cast<uint32_t>((bytes + GROUP_SIZE - 1) / GROUP_SIZE);
}

}  // namespace

bool SymbolStore::Takes(const Poll& poll) {
  return poll.transfer != 0 && poll.symbolSize == SYMBOL_SIZE && poll.catalogueLength != 0 &&
         poll.catalogueLength <= LONGEST_CATALOGUE;
}

SymbolStore::SymbolStore(const Poll& poll)
    : transfer(poll.transfer), catalogueLength(poll.catalogueLength), catalogueGroups(GroupsOf(poll.catalogueLength)) {}

size_t SymbolStore::SymbolsIn(uint32_t group) const {
  if (group < catalogueGroups) return SymbolsOf(std::min<size_t>(GROUP_SIZE, catalogueLength - group * GROUP_SIZE));
  return SymbolsOf(contents.BytesIn(group - catalogueGroups));
}

bool SymbolStore::IsTaken(uint32_t group) const {
  return group < catalogueGroups ? hasContents : taken[group - catalogueGroups];
}

/// nullptr when nothing of that group is wanted, or there is no room for it.
SymbolStore::Gathered* SymbolStore::Open(uint32_t group) {
  const bool isKnown = group < catalogueGroups || (hasContents && group - catalogueGroups < contents.Count());
  if (!isKnown || IsTaken(group)) return nullptr;
  if (const auto found = groups.find(group); found != groups.end()) return &found->second;
  if (group >= catalogueGroups && groups.size() == MOST_GROUPS) return nullptr;
  Gathered& fresh = groups[group];
  fresh.symbols = SymbolsIn(group);
  fresh.bytes = slabs.Take();
  return &fresh;
}

bool SymbolStore::Take(const SymbolDatagram& symbol) {
  const uint8_t index = symbol.head.index;
  if (symbol.head.transfer != transfer || symbol.bytes.size() != SYMBOL_SIZE) return false;
  ++arrived;
  Gathered* group = Open(symbol.head.group);
  const bool isSource = index < MOST_SOURCE_SYMBOLS;
  if (!group || group->IsWhole() || group->has[index] || (isSource && index >= group->symbols)) return false;
  group->has[index] = true;
  ++group->count;
  if (isSource) {
    std::copy(symbol.bytes.begin(), symbol.bytes.end(), &group->bytes[index * SYMBOL_SIZE]);
  } else {
    std::vector<uint8_t>& kept = group->repair.emplace_back(1, index);
    kept.insert(kept.end(), symbol.bytes.begin(), symbol.bytes.end());
  }
  if (!group->IsWhole()) return true;
  Recover(*group);
  if (symbol.head.group >= catalogueGroups) whole.push_back(symbol.head.group);
  return true;
}

void SymbolStore::Recover(Gathered& group) {
  std::vector<uint8_t> lacking;
  for (size_t i = 0; i < group.symbols; ++i)
    if (!group.has[i]) lacking.push_back(static_cast<uint8_t>(i));
  std::vector<Symbol> repair;
  for (const auto& kept : group.repair) repair.push_back({kept[0], kept.data() + 1});
  RecoverSymbols(group.Bytes(), SYMBOL_SIZE, lacking, repair);
  group.repair.clear();
}

std::optional<std::vector<uint8_t>> SymbolStore::TakeCatalogue() {
  if (hasContents || groups.size() < catalogueGroups) return std::nullopt;
  std::vector<uint8_t> bytes;
  for (const auto& [number, group] : groups) {
    if (!group.IsWhole()) return std::nullopt;
    bytes.insert(bytes.end(), group.Bytes().begin(), group.Bytes().end());
  }
  bytes.resize(catalogueLength);
  groups.clear();
  return bytes;
}

void SymbolStore::SetContents(std::vector<FileShape> shapes) {
  contents = GroupLayout(std::move(shapes));
  taken.assign(contents.Count(), false);
  hasContents = true;
}

std::optional<SymbolStore::Run> SymbolStore::NextRun() {
  while (!whole.empty()) {
    const uint32_t number = whole.front();
    if (!handing) handing = contents.Runs(number - catalogueGroups);
    if (const auto blocks = handing->Next()) return Run{*blocks, groups.at(number).bytes};
    handing.reset();
    SetTaken(number - catalogueGroups);
  }
  return std::nullopt;
}

void SymbolStore::SetTaken(uint32_t group) {
  taken[group] = true;
  const uint32_t number = group + catalogueGroups;
  std::erase(whole, number);
  groups.erase(number);
}

Lacks SymbolStore::Answer(const Poll& poll) const {
  const uint32_t known = hasContents ? catalogueGroups + contents.Count() : catalogueGroups;
  Lacks answer{
      {.transfer = transfer, .round = poll.round, .endGroup = std::min(poll.endGroup, known), .arrived = arrived}, {}};
  for (uint32_t group = hasContents ? std::max(poll.firstGroup, catalogueGroups) : 0; group < answer.head.endGroup;
       ++group) {
    if (IsTaken(group)) continue;
    if (answer.groups.size() == MOST_LACKS) {
      answer.head.endGroup = group;
      break;
    }
    const auto found = groups.find(group);
    const size_t lacks = found == groups.end() ? SymbolsIn(group) : found->second.symbols - found->second.count;
    // A group of the contents that is whole is named as well: it is in nobody else's hands yet.
    if (lacks > 0 || group >= catalogueGroups) answer.groups.push_back({group, static_cast<uint8_t>(lacks)});
  }
  return answer;
}

}  // namespace quorl
