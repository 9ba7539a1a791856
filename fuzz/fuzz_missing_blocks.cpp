// Any history of the record of missing blocks, against plain sets that follow the rules block by block.
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "receiver/missing_blocks.h"

namespace quorl {
namespace {

constexpr uint32_t FILES_MAX = 12;
constexpr uint32_t BLOCKS_MAX = 300;

using Block = std::pair<uint32_t, uint32_t>;

/// What is true of a transfer.
struct Model {
  uint32_t fileCount = 0;
  uint32_t totalBlocks = 0;
  std::map<uint32_t, FileShape> shapes{};
  std::set<uint32_t> failed{};
  std::set<Block> stored{};
  std::set<Block> lost{};
  std::vector<GapRecord> gaps{};
};

/// One receiver's book-keeping, done twice.
class History : Model {
 public:
  explicit History(fuzz::Input input) : input(input) {}

  void Run() {
    while (!input.IsEmpty()) {
      Step();
      Compare();
    }
  }

 private:
  void Step() {
    switch (input.Below(10)) {
      case 0: return Begin();
      case 1: return Admit();
      case 2: return AddGap();
      case 3: return Expand();
      case 4: return EnterBlocksAndFiles();
      case 5: return EnterUnstored();
      case 6: return Remove();
      case 7: return Fail();
      default: return Store();
    }
  }

  void Begin() {
    static_cast<Model&>(*this) = {input.Below(FILES_MAX + 1), input.Below(BLOCKS_MAX)};
    earlier = std::exchange(generation, tested.Begin(fileCount, totalBlocks));
  }

  void Admit() {
    BlockHead head;
    head.file = input.Number();
    head.lastBlock = input.Number();
    head.tailSize = static_cast<uint16_t>(input.Below(3));
    // Files that are still unknown have a block each.
    uint64_t blocks = head.Shape().BlockCount();
    for (uint32_t file = 1; file <= fileCount; ++file)
      if (file != head.file) blocks += Blocks(file);
    Admission expected = blocks > totalBlocks ? Admission::BeyondTotal : Admission::Admitted;
    if (shapes.contains(head.file))
      expected = shapes.at(head.file) == head.Shape() ? Admission::Admitted : Admission::SecondShape;
    if (head.file == 0 || head.file > fileCount) expected = Admission::BeyondFileCount;
    MUST(tested.Admit(head) == expected);
    if (expected == Admission::Admitted) shapes.emplace(head.file, head.Shape());
  }

  void AddGap() {
    gaps.push_back({input.Number(), input.Number(), input.Number(), input.Number(), input.Number(), 0});
    tested.AddGap(gaps.back());
    if (expansionEnded) Expand();
  }

  /// As LostThread does, until it ends for good.
  void Expand() {
    while (const auto gap = tested.TakeGap()) {
      GapExpansion expansion(gap->record, gap->blockLimit);
      while (const auto block = expansion.Next()) tested.EnterExpanded(gap->generation, *block);
    }
    for (const GapRecord& gap : gaps) EnterGap(gap);
    gaps.clear();
    if (input.Below(8) == 0) expansionEnded = tested.EndExpansion();
  }

  void EnterBlocksAndFiles() {
    const uint32_t file = input.Number(), first = input.Number(), last = input.Below(BLOCKS_MAX);
    tested.EnterBlocks(file, first, last);
    tested.EnterFiles(first, fileCount);
    for (uint64_t block = first; block <= last; ++block) Enter(file, block);
    for (uint64_t other = first; other <= fileCount; ++other) Enter(other, 0);
  }

  void EnterUnstored() {
    tested.EnterUnstored();
    for (uint32_t file = 1; file <= fileCount; ++file)
      for (uint64_t block = 0; block < Blocks(file); ++block)
        if (!stored.contains({file, static_cast<uint32_t>(block)})) Enter(file, block);
  }

  void Remove() {
    const Block block{input.Number(), input.Number()};
    tested.Remove({block.first, block.second});
    lost.erase(block);
  }

  void Store() {
    const uint32_t file = input.Below(FILES_MAX + 1);
    if (!shapes.contains(file)) return;
    const uint64_t first = input.Number() % Blocks(file);
    const uint64_t count = input.Number() % (Blocks(file) - first + 1);
    const uint32_t when = input.Below(8) == 0 ? earlier : generation;
    tested.Store(when, file, static_cast<uint32_t>(first), static_cast<uint32_t>(count));
    for (uint64_t i = 0; i < count && when == generation; ++i) stored.insert({file, static_cast<uint32_t>(first + i)});
  }

  void Fail() {
    if (fileCount == 0) return;
    const uint32_t file = 1 + input.Below(fileCount);
    MUST(tested.Fail(generation, file, 1001) == failed.insert(file).second);
    std::erase_if(lost, [&](const Block& block) { return block.first == file; });
  }

  // ---- the model ----

  uint64_t Blocks(uint32_t file) const { return shapes.contains(file) ? shapes.at(file).BlockCount() : 1; }

  void Enter(uint64_t file, uint64_t block) {
    const auto number = static_cast<uint32_t>(file);
    if (file >= 1 && file <= fileCount && block < Blocks(number) && !failed.contains(number))
      lost.insert({number, static_cast<uint32_t>(block)});
  }

  /// Everything between two blocks of the stream, as far as the transfer is long.
  void EnterGap(const GapRecord& gap) {
    uint64_t left = totalBlocks;
    const uint64_t end = gap.toFile == gap.fromFile ? gap.toBlock : uint64_t{gap.fromLastBlock} + 1;
    if (gap.toFile < gap.fromFile) return;
    if (gap.fromFile != 0 || gap.toFile == 0)
      for (uint64_t block = uint64_t{gap.fromBlock} + 1; block < end && left > 0; ++block, --left)
        Enter(gap.fromFile, block);
    if (gap.toFile == gap.fromFile) return;
    for (uint64_t file = uint64_t{gap.fromFile} + 1; file < gap.toFile && left > 0; ++file, --left) Enter(file, 0);
    for (uint64_t block = 0; block < gap.toBlock && left > 0; ++block, --left) Enter(gap.toFile, block);
  }

  void Compare() {
    MUST(tested.IsClear() == (gaps.empty() && lost.empty()));
    const auto first = tested.First();
    MUST(first.has_value() == !lost.empty());
    MUST(!first || Block(first->file, first->block) == *lost.begin());
    const LostBlock any{input.Below(FILES_MAX + 2), input.Below(BLOCKS_MAX)};
    MUST(tested.Contains(any) == lost.contains({any.file, any.block}));
    MUST(tested.IsStored(generation, any) == stored.contains({any.file, any.block}));
    MUST(tested.IsFailed(generation, any.file) == failed.contains(any.file));
    uint64_t ofFailed = 0, ofAll = 0;
    for (uint32_t file = 1; file <= fileCount; ++file) {
      ofAll += Blocks(file);
      if (failed.contains(file)) ofFailed += Blocks(file);
    }
    MUST(tested.CountForAnswer() == lost.size() + ofFailed);
    MUST(tested.IsWhole() ==
         (generation != 0 && failed.empty() && stored.size() == ofAll && shapes.size() == fileCount));
    const MissingBlocks::Counts counts = tested.Count();
    MUST(counts.stored == stored.size() && counts.stored <= totalBlocks);
    MUST(counts.missing == lost.size() + ofFailed && counts.failedFiles == failed.size());
  }

  fuzz::Input input;
  Counters counters;
  MissingBlocks tested{counters};
  uint32_t generation = 0;
  uint32_t earlier = 0;
  bool expansionEnded = false;
};

}  // namespace

void fuzz::Run(Input input) {
  History(input).Run();
}

}  // namespace quorl
