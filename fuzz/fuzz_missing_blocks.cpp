// Any history of what a receiver misses, against plain sets that follow the rules block by block: the classic repair
// with its gaps and its map of missing blocks, and the record in which a robust one sees what has not come.
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "receiver/repair/classic_repair.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

constexpr uint32_t FILES_MAX = 12;
constexpr uint32_t BLOCKS_MAX = 300;

using Block = std::pair<uint32_t, uint32_t>;

/// What a classic receiver knows, and how it answers.
class ClassicModel {
 public:
  explicit ClassicModel(fuzz::Input& input) : input(input) {}

  /// False once the receiver has left.
  bool Step() {
    now += 1h;  // LostThread has been through everything since
    ExpandGaps();
    switch (input.Below(8)) {
      case 0: Begin(); break;
      case 1:
      case 2:
      case 3: Data(); break;
      case 4: Resend(); break;
      case 5: Finish(); break;
      case 6: Master(); break;
      default: Release(); break;
    }
    Compare();
    steps.clear();
    expected.clear();
    return !left;
  }

 private:
  void Begin() {
    fileCount = input.Below(FILES_MAX);
    record.Begin(fileCount, input.Below(BLOCKS_MAX) * FILES_MAX);
    tested.Begin(now);
    lost.clear();
    gaps.clear();
    seen = {1, 0, 0};
    answerPending = started = true;
  }

  BlockHead AnyHead() {
    BlockHead head;
    head.file = 1 + input.Below(FILES_MAX);
    head.block = input.Below(BLOCKS_MAX);
    head.lastBlock = input.Below(BLOCKS_MAX);
    return head;
  }

  void Data() {
    const BlockHead head = AnyHead();
    MUST(tested.TakeData(head, true, now, steps) == Admission::Admitted);
    const bool begins = head.file == seen.file + 1;
    const bool follows = begins ? head.block == 0 && seen.block >= seen.last
                                : head.block <= seen.block + 1 && head.file <= seen.file + 1;
    expected.emplace_back("store");
    if (!follows) gaps.push_back({seen.file, seen.block, seen.last, head.file, head.block, head.lastBlock});
    seen = {head.file, head.block, head.lastBlock};
  }

  void Resend() {
    const BlockHead head = AnyHead();
    const bool exists = input.Below(2) == 1;
    tested.TakeResend(head, true, now, steps);
    const bool looks = !steps.empty() && std::holds_alternative<LookStep>(steps.back());
    if (looks) tested.TakeLook(head, exists, now, steps);
    if (answerPending && Answer()) return;
    if (MissesNothing()) return Ack({fileCount + 1, 0});
    if (lost.erase({head.file, head.block}) == 1) {
      MUST(looks == (head.block == 0));
      if (head.block == 0 && !exists)
        for (uint32_t block = 1; block <= head.lastBlock; ++block) Enter(head.file, block);
      expected.emplace_back("store");
      AckFirst();
      if (lost.empty()) return;
    } else if (isMaster && seen.block != head.block && seen.file != head.file) {
      AckFirst();
    }
    seen.file = head.file;
    seen.block = head.block;
  }

  void Finish() {
    tested.TakeFinish(now, steps);
    if (answerPending) Answer();
  }

  void Master() {
    const uint32_t state = input.Below(2);
    tested.TakeMaster({state}, now, steps);
    isMaster = state != 0;
    if (!isMaster && MissesNothing()) {
      expected.emplace_back("finish 0");
      return Leave();
    }
    isMaster = true;
    gaps.empty() ? AckFirst() : Ack({fileCount + 1, 0});
  }

  void Release() {
    const quorl::Release release{static_cast<uint8_t>(input.Below(2)), static_cast<uint8_t>(input.Below(8) == 0)};
    tested.TakeRelease(release, now, steps);
    if ((release.allSent && MissesNothing()) || release.secondPass) return Leave();
    isMaster = false;
  }

  // ---- the rules ----

  bool MissesNothing() const { return lost.empty() && gaps.empty(); }

  void Leave() {
    expected.emplace_back("finished");
    left = true;
  }

  bool Answer() {
    answerPending = false;
    for (uint64_t block = uint64_t{seen.block} + 1; block <= seen.last; ++block) Enter(seen.file, block);
    for (uint64_t file = uint64_t{seen.file} + 1; file <= fileCount; ++file) Enter(file, 0);
    ExpandGaps();
    ended = true;
    expected.push_back("answer " + std::to_string(lost.size()));
    if (lost.empty()) Leave();
    return lost.empty();
  }

  void Ack(Block wanted) {
    if (isMaster) expected.push_back("ack " + std::to_string(wanted.first) + " " + std::to_string(wanted.second));
  }
  void AckFirst() { Ack(lost.empty() ? Block{fileCount + 1, 0} : *lost.begin()); }

  /// False from a file on that no request can name.
  bool Enter(uint64_t file, uint64_t block) {
    if (file == 0 || file > fileCount) return false;
    lost.insert({static_cast<uint32_t>(file), static_cast<uint32_t>(block)});
    return true;
  }

  void ExpandGaps() {
    if (!started || ended) return;
    for (const GapRecord& gap : gaps) Expand(gap);
    gaps.clear();
  }

  /// Everything between two blocks of the stream, as far as there is room for.
  void Expand(const GapRecord& gap) {
    if (gap.toFile < gap.fromFile) return;
    uint64_t room = record.Room();
    const uint64_t end = gap.toFile == gap.fromFile ? gap.toBlock : uint64_t{gap.fromLastBlock} + 1;
    for (uint64_t block = uint64_t{gap.fromBlock} + 1; block < end && room > 0; ++block, --room)
      if (!Enter(gap.fromFile, block)) return;
    if (gap.toFile == gap.fromFile) return;
    for (uint64_t file = uint64_t{gap.fromFile} + 1; file < gap.toFile && room > 0; ++file, --room)
      if (!Enter(file, 0)) return;
    for (uint64_t block = 0; block < gap.toBlock && room > 0; ++block, --room)
      if (!Enter(gap.toFile, block)) return;
  }

  void Compare() {
    std::vector<std::string> said;
    for (const RepairStep& step : steps) {
      const auto* ack = std::get_if<AckStep>(&step);
      if (ack && ack->send)
        said.push_back("ack " + std::to_string(ack->wanted.file) + " " + std::to_string(ack->wanted.block));
      if (const auto* answer = std::get_if<AnswerStep>(&step))
        said.push_back("answer " + std::to_string(answer->missing));
      if (const auto* finish = std::get_if<FinishStep>(&step))
        said.push_back("finish " + std::to_string(finish->status));
      if (std::holds_alternative<StoreStep>(step)) said.emplace_back("store");
      if (std::holds_alternative<FinishedStep>(step)) said.emplace_back("finished");
    }
    MUST(said == expected);
    MUST(record.LostCount() == lost.size());
    MUST(tested.IsStreaming() == answerPending);
  }

  struct Seen {
    uint32_t file = 1, block = 0, last = 0;
  };

  fuzz::Input& input;
  Counters counters;
  BlockRecord record;
  ClassicRepair tested{record, counters};
  Moment now{};
  RepairSteps steps;

  uint32_t fileCount = 0;
  Seen seen;
  std::set<Block> lost;
  std::vector<GapRecord> gaps;
  std::vector<std::string> expected;
  bool started = false;  ///< LostThread,
  bool ended = false;    ///< and it has ended with the first stream, not to start again.
  bool answerPending = false;
  bool isMaster = false;
  bool left = false;
};

/// What has come and what is stored of an announced transfer.
class RecordModel {
 public:
  explicit RecordModel(fuzz::Input& input) : input(input) {
    fileCount = input.Below(FILES_MAX + 1);
    totalBlocks = input.Below(BLOCKS_MAX);
    generation = tested.Begin(fileCount, totalBlocks);
  }

  void Step() {
    switch (input.Below(6)) {
      case 0:
      case 1:
      case 2: return Receive();
      case 3: return Store();
      case 4: return Fail();
      default: return ForgetUnstored();
    }
  }

  void Compare() {
    std::optional<Block> first;
    uint64_t came = 0, all = 0;
    for (uint32_t file = 1; file <= fileCount; ++file) {
      all += Blocks(file);
      if (failed.contains(file)) continue;
      for (uint32_t block = 0; block < Blocks(file); ++block) {
        came += received.contains({file, block});
        if (!first && !received.contains({file, block})) first = {file, block};
      }
    }
    const auto missing = tested.FirstNotReceived();
    MUST(missing.has_value() == first.has_value());
    MUST(!missing || Block(missing->file, missing->block) == *first);
    MUST(tested.NotReceivedCount() == (shapes.size() == fileCount ? all : totalBlocks) - came);
    MUST(tested.IsWhole() == (failed.empty() && shapes.size() == fileCount && stored.size() == all));
    MUST(tested.StoredCount() == stored.size() && tested.FailedFiles() == failed.size());
  }

 private:
  void Receive() {
    BlockHead head;
    head.file = 1 + input.Below(FILES_MAX);
    head.lastBlock = input.Below(BLOCKS_MAX);
    head.block = input.Below(BLOCKS_MAX);
    uint64_t blocks = head.Shape().BlockCount();
    for (uint32_t file = 1; file <= fileCount; ++file)
      if (file != head.file) blocks += Blocks(file);
    Admission admission = blocks > totalBlocks ? Admission::BeyondTotal : Admission::Admitted;
    if (head.block > head.lastBlock) admission = Admission::BeyondLast;
    if (shapes.contains(head.file) && shapes.at(head.file) != head.lastBlock) admission = Admission::SecondShape;
    if (shapes.contains(head.file) && shapes.at(head.file) == head.lastBlock && head.block <= head.lastBlock)
      admission = Admission::Admitted;
    if (head.file > fileCount) admission = Admission::BeyondFileCount;
    MUST(tested.AdmitAnnounced(head) == admission);
    if (admission != Admission::Admitted) return;
    shapes.emplace(head.file, head.lastBlock);
    MUST(tested.Receive({head.file, head.block}) == received.insert({head.file, head.block}).second);
  }

  void Store() {
    if (received.empty()) return;
    auto block = received.begin();
    std::advance(block, input.Below(static_cast<uint32_t>(received.size())));
    const bool current = input.Below(8) != 0;
    tested.Store(current ? generation : generation + 1, block->first, block->second, 1);
    if (current) stored.insert(*block);
  }

  void Fail() {
    if (fileCount == 0) return;
    const uint32_t file = 1 + input.Below(fileCount);
    MUST(tested.Fail(generation, file, 1001) == failed.insert(file).second);
  }

  void ForgetUnstored() {
    tested.ForgetUnstored();
    std::erase_if(received,
                  [&](const Block& block) { return !failed.contains(block.first) && !stored.contains(block); });
  }

  uint64_t Blocks(uint32_t file) const { return shapes.contains(file) ? uint64_t{shapes.at(file)} + 1 : 1; }

  fuzz::Input& input;
  BlockRecord tested;
  uint32_t generation = 0;
  uint32_t fileCount = 0;
  uint32_t totalBlocks = 0;
  std::map<uint32_t, uint32_t> shapes;  ///< The last block of each.
  std::set<uint32_t> failed;
  std::set<Block> received;
  std::set<Block> stored;
};

}  // namespace

void fuzz::Run(Input input) {
  if (input.Below(2) == 0) {
    ClassicModel model(input);
    while (!input.IsEmpty() && model.Step()) {
    }
    return;
  }
  RecordModel model(input);
  while (!input.IsEmpty()) {
    model.Step();
    model.Compare();
  }
}

}  // namespace quorl
