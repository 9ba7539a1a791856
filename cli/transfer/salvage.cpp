#include "cli/transfer/salvage.h"

#include <algorithm>
#include <utility>

#include "cli/transfer/stored_blocks.h"

namespace quorl::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto PAUSE = 2s;
// A record of many pieces takes one part in so many of the time.
constexpr int MOST_OF_TIME = 20;

/// Calls `use` for each run of blocks with its file, without files that stand in their places: they count as stored,
/// and are not in staging.
template <typename Use>
void ForStaged(const Manifest& catalogue, const InPlace& inPlace, std::span<const QuorlBlocks> stored, Use use) {
  for (const QuorlBlocks& run : stored) {
    if (run.file == 0 || run.file > catalogue.files.size()) continue;
    const ManifestEntry& entry = catalogue.files[run.file - 1];
    if (run.length == entry.size && !inPlace.contains(entry.name)) use(run, entry);
  }
}

Kept KeptOf(const Manifest& catalogue, const InPlace& inPlace, std::span<const QuorlBlocks> stored) {
  Kept kept;
  ForStaged(catalogue, inPlace, stored, [&](const QuorlBlocks& run, const ManifestEntry& entry) {
    Kept::File& file = kept.files[entry.name];
    file.size = entry.size;
    file.written = entry.written;
    file.blocks.emplace_back(run.first, run.count);
  });
  return kept;
}

RecordText RecordOf(const Manifest& catalogue, const InPlace& inPlace, std::span<const QuorlBlocks> stored) {
  RecordText text;
  uint32_t file = 0;
  ForStaged(catalogue, inPlace, stored, [&](const QuorlBlocks& run, const ManifestEntry& entry) {
    if (std::exchange(file, run.file) != run.file) text.AddFile(entry.name, entry.size, entry.written);
    text.AddBlocks(run.first, run.count);
  });
  return text;
}

void EraseMissing(Kept& kept, const Directory& staging) {
  std::erase_if(kept.files, [&](const auto& one) {
    const SplitName split(StoredName(one.first));
    const Directory directory = staging.Sub(split.directory);
    return !directory || !directory.Look(split.leaf);
  });
}

}  // namespace

void Recorder::Note(const Staging& staging, const Manifest& catalogue, const InPlace& inPlace) {
  const auto now = Clock::now();
  if (now < next) return;
  if (next != Clock::time_point()) staging.Record(RecordOf(catalogue, inPlace, StoredBlocks()));
  const auto cost = Clock::now() - now;
  next = now + std::max<Clock::duration>(PAUSE, cost * MOST_OF_TIME);
}

Salvaged Salvage(Staging& staging, const Manifest& catalogue, const InPlace& inPlace,
                 std::span<const QuorlBlocks> stored, const std::map<uint32_t, Digest>& digests,
                 const MoveRules& rules) {
  Salvaged salvaged;
  const Directory from = staging.Open();
  if (!from) return salvaged;
  salvaged.kept = KeptOf(catalogue, inPlace, stored);
  EraseMissing(salvaged.kept, from);
  auto& files = salvaged.kept.files;
  StagedTree whole;
  for (const auto& [number, digest] : digests) {
    if (number == 0 || number > catalogue.files.size()) continue;
    const ManifestEntry& entry = catalogue.files[number - 1];
    const auto found = files.find(entry.name);
    if (found == files.end() || !found->second.IsWhole()) continue;
    const std::string name = StoredName(entry.name);
    OpenedFile file = from.Read(name);
    const auto read = file ? DigestOfFile(file, catalogue.kind, nullptr) : std::nullopt;
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
