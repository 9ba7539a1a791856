#include "cli/transfer/salvage.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace quorl::cli {
namespace {

Kept KeptOf(const Manifest& catalogue, std::span<const QuorlBlocks> stored, const Directory& staging) {
  Kept kept;
  for (const QuorlBlocks& run : stored) {
    if (run.file == 0 || run.file > catalogue.files.size()) continue;
    const ManifestEntry& entry = catalogue.files[run.file - 1];
    if (run.length != entry.size) continue;
    Kept::File& file = kept.files[entry.name];
    file.size = entry.size;
    file.written = entry.written;
    file.blocks.emplace_back(run.first, run.count);
  }
  // What stands in its place already counts as stored, and is not here.
  std::erase_if(kept.files, [&](const auto& one) {
    const SplitName split(StoredName(one.first));
    const Directory directory = staging.Sub(split.directory);
    return !directory || !directory.Look(split.leaf);
  });
  return kept;
}

}  // namespace

Salvaged Salvage(Staging& staging, const Manifest& catalogue, std::span<const QuorlBlocks> stored,
                 const std::map<uint32_t, Digest>& digests, const MoveRules& rules) {
  Salvaged salvaged;
  const Directory from = staging.Open();
  if (!from) return salvaged;
  salvaged.kept = KeptOf(catalogue, stored, from);
  auto& files = salvaged.kept.files;
  StagedTree whole;
  for (const auto& [number, digest] : digests) {
    if (number == 0 || number > catalogue.files.size()) continue;
    const ManifestEntry& entry = catalogue.files[number - 1];
    const auto found = files.find(entry.name);
    if (found == files.end() || !found->second.IsWhole()) continue;
    const std::string name = StoredName(entry.name);
    OpenedFile file = from.Read(name);
    const auto read = file ? DigestOfFile(file, nullptr) : std::nullopt;
    const bool isRight = read && read->size == entry.size && IsSame(read->digest, digest);
    if (isRight && !file.Describe(entry.written, entry.executable, entry.permissions)) {
      whole.files.push_back({name, entry.size});
    } else {
      files.erase(found);
    }
  }
  std::sort(whole.files.begin(), whole.files.end(),
            [](const auto& left, const auto& right) { return left.name < right.name; });
  salvaged.moved = MoveTree(from, staging.Target(), whole, rules);
  for (const MoveReport::Moved& moved : salvaged.moved.moved)
    std::erase_if(files, [&](const auto& one) { return StoredName(one.first) == moved.name; });
  if (!files.empty() && staging.Keep(salvaged.kept)) files.clear();
  return salvaged;
}

}  // namespace quorl::cli
