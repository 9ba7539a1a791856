// The rules by which a receiver finds out what it lacks: the sequence test, what a gap stands for, the keys, the record
// of what is stored.
#include <gtest/gtest.h>

#include "receiver/gap_expansion.h"
#include "receiver/lost_map.h"
#include "receiver/missing_blocks.h"
#include "receiver/request_timer.h"
#include "receiver/sequence_position.h"
#include "receiver/stored_blocks.h"

namespace quorl {

inline void PrintTo(const LostBlock& block, std::ostream* out) {
  *out << "(" << block.file << ", " << block.block << ")";
}

namespace {

using namespace std::chrono_literals;
using Blocks = std::vector<LostBlock>;

constexpr uint64_t NO_LIMIT = UINT64_MAX;

SequencePosition At(uint32_t file, uint32_t block, uint32_t lastBlock) {
  SequencePosition position;
  position.MoveTo(file, block, lastBlock);
  return position;
}

bool Follows(SequencePosition position, uint32_t file, uint32_t block) {
  return !position.MoveTo(file, block, 9);
}

TEST(SequenceTest, OnlySkippedBlocksMakeAGap) {
  EXPECT_TRUE(Follows(SequencePosition(), 1, 0));
  EXPECT_TRUE(Follows(SequencePosition(), 1, 1));
  EXPECT_FALSE(Follows(SequencePosition(), 1, 2));
  EXPECT_TRUE(Follows(At(2, 5, 9), 2, 5));
  EXPECT_TRUE(Follows(At(2, 5, 9), 2, 6));
  EXPECT_TRUE(Follows(At(2, 5, 9), 2, 1));
  EXPECT_FALSE(Follows(At(2, 5, 9), 2, 7));
  EXPECT_TRUE(Follows(At(1, 3, 3), 2, 0));
  EXPECT_TRUE(Follows(At(1, 3, 3), 2, 4));
  EXPECT_FALSE(Follows(At(1, 3, 3), 2, 5));
  EXPECT_FALSE(Follows(At(1, 2, 3), 2, 0));
  EXPECT_FALSE(Follows(At(1, 3, 3), 3, 0));
  EXPECT_TRUE(Follows(At(5, 0, 0), 2, 1));
}

Blocks Expanded(const GapRecord& gap, uint64_t limit = NO_LIMIT) {
  Blocks blocks;
  GapExpansion expansion(gap, limit);
  while (const auto block = expansion.Next()) blocks.push_back(*block);
  return blocks;
}

TEST(GapExpansionTest, NamesTheRestOfTheOldFileTheFilesBetweenAndTheStartOfTheNew) {
  EXPECT_EQ(Expanded({2, 5, 9, 2, 8, 9}), (Blocks{{2, 6}, {2, 7}}));
  EXPECT_EQ(Expanded({2, 5, 9, 5, 3, 4}),
            (Blocks{{2, 6}, {2, 7}, {2, 8}, {2, 9}, {3, 0}, {4, 0}, {5, 0}, {5, 1}, {5, 2}}));
  EXPECT_EQ(Expanded({0, 0, 0, 1, 2, 7}), (Blocks{{1, 0}, {1, 1}}));
  EXPECT_EQ(Expanded({1, 3, 3, 2, 0, 0}), Blocks{});
  EXPECT_EQ(Expanded({4, 2, 9, 3, 8, 9}), Blocks{});
  EXPECT_EQ(Expanded({4, 8, 9, 4, 2, 9}), Blocks{});
}

TEST(LostMapTest, KeysArePaddedSoThatTheFirstEntryIsTheFirstBlock) {
  const auto key = blockKey({42, UINT32_MAX});
  EXPECT_EQ(std::string(key.begin(), key.end()), "00000000424294967295");
  LostMap map;
  for (const LostBlock block : Blocks{{10, 0}, {9, 100}, {9, 20}, {9, 20}}) EXPECT_TRUE(map.Enter(block));
  EXPECT_EQ(map.Size(), 3u);
  EXPECT_EQ(map.First(), (LostBlock{9, 20}));
  map.RemoveFile(9);
  EXPECT_EQ(map.First(), (LostBlock{10, 0}));
}

BlockHead Head(uint32_t file, FileShape shape) {
  return {file, 0, shape.lastBlock, 1, shape.tailSize, NameField::From("\\f" + std::to_string(file))};
}

TEST(MissingBlocksTest, TheMapIsBoundedAndFillsAgainFromWhatIsStored) {
  Counters counters;
  MissingBlocks missing(counters);
  const auto blocks = static_cast<uint32_t>(LostMap::LIMIT + 100);
  const uint32_t generation = missing.Begin(1, blocks);
  ASSERT_EQ(missing.Admit(Head(1, {blocks - 1, 0})), Admission::Admitted);
  missing.EnterUnstored();
  EXPECT_EQ(missing.CountForAnswer(), blocks);
  EXPECT_EQ(missing.Count().missing, LostMap::LIMIT);
  EXPECT_FALSE(missing.Contains({1, blocks - 1}));
  EXPECT_EQ(counters[Count::RefusedMissing], 1u);
  EXPECT_EQ(counters[Count::MissingHighWater], LostMap::LIMIT);
  missing.Store(generation, 1, 0, LostMap::LIMIT);
  missing.Clear();
  missing.EnterUnstored();
  EXPECT_EQ(missing.CountForAnswer(), 100u);
  EXPECT_EQ(missing.First(), (LostBlock{1, static_cast<uint32_t>(LostMap::LIMIT)}));
}

TEST(MissingBlocksTest, GapsWaitInBoundedNumber) {
  Counters counters;
  MissingBlocks missing(counters);
  missing.Begin(1, 10);
  for (size_t i = 0; i < MissingBlocks::GAP_LIMIT + 5; ++i) missing.AddGap({1, 0, 9, 1, 3, 9});
  EXPECT_EQ(counters[Count::RefusedGaps], 5u);
  EXPECT_EQ(counters[Count::GapsHighWater], MissingBlocks::GAP_LIMIT);
}

TEST(RequestTimerTest, FollowsTheRoundTripAndDoublesForARepeatedRequest) {
  RequestTimer timer;
  timer.Sent(0ms, {1, 0});
  timer.Answered(100ms, {1, 1});  // not what was asked for
  EXPECT_EQ(timer.Due(), RequestTimer::INITIAL);
  timer.Answered(40ms, {1, 0});
  EXPECT_EQ(timer.Due(), std::nullopt);
  timer.Sent(1000ms, {1, 1});
  EXPECT_EQ(timer.Due(), 1000ms + 40ms + 4 * 20ms);
  timer.Sent(1120ms, {1, 1});
  EXPECT_EQ(timer.Due(), 1120ms + 240ms);
  timer.Answered(1121ms, {1, 1});  // of which of the two it cannot be told
  timer.Sent(3000ms, {1, 2});
  EXPECT_EQ(timer.Due(), 3000ms + 240ms);
  for (int i = 0; i < 9; ++i) timer.Sent(3240ms, {1, 2});
  EXPECT_EQ(timer.Due(), 3240ms + RequestTimer::LONGEST);
}

}  // namespace
}  // namespace quorl
