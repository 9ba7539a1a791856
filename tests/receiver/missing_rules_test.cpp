// The rules by which a receiver finds out what it lacks, where no model checks them: the sequence test, the bounds, and
// when it asks again.
#include <gtest/gtest.h>

#include "receiver/gap_expansion.h"
#include "receiver/lost_map.h"
#include "receiver/missing_blocks.h"
#include "receiver/request_timer.h"
#include "receiver/sequence_position.h"

namespace quorl {
namespace {

using namespace std::chrono_literals;

TEST(SequenceTest, OnlySkippedBlocksMakeAGapAndItNamesThem) {
  struct Case {
    LostBlock seen;
    uint32_t lastBlock;
    LostBlock next;
    std::vector<LostBlock> skipped;
  };
  // Within a file; from file to file, where the numbers of blocks count as if it were one; at the start, which is as
  // if block 0 of file 1 had come.
  const Case cases[] = {
      {{2, 5}, 9, {2, 5}, {}},       {{2, 5}, 9, {2, 6}, {}},
      {{2, 5}, 9, {2, 1}, {}},       {{2, 5}, 9, {2, 8}, {{2, 6}, {2, 7}}},
      {{1, 3}, 3, {2, 0}, {}},       {{1, 3}, 3, {2, 4}, {}},
      {{5, 0}, 0, {2, 1}, {}},       {{1, 0}, 0, {2, 2}, {{2, 0}, {2, 1}}},
      {{1, 2}, 3, {2, 0}, {{1, 3}}}, {{2, 7}, 9, {5, 2}, {{2, 8}, {2, 9}, {3, 0}, {4, 0}, {5, 0}, {5, 1}}},
      {{0, 0}, 0, {1, 1}, {}},       {{0, 0}, 0, {1, 2}, {{1, 1}}},
  };
  for (const Case& c : cases) {
    SequencePosition position;
    if (c.seen.file != 0) position.MoveTo(c.seen.file, c.seen.block, c.lastBlock);
    const auto gap = position.MoveTo(c.next.file, c.next.block, 9);
    std::vector<LostBlock> skipped;
    GapExpansion expansion(gap.value_or(GapRecord{}), UINT64_MAX);
    while (const auto block = expansion.Next()) skipped.push_back(*block);
    EXPECT_EQ(skipped, c.skipped) << c.seen.file << " to " << c.next.file;
    EXPECT_EQ(gap.has_value(), !c.skipped.empty());
  }
}

TEST(MissingBlocksTest, TheRecordIsBoundedAndFillsAgainFromWhatIsStored) {
  Counters counters;
  MissingBlocks missing(counters);
  const auto blocks = static_cast<uint32_t>(LostMap::LIMIT + 100);
  const uint32_t generation = missing.Begin(1, blocks);
  ASSERT_EQ(missing.Admit({1, 0, blocks - 1, 1, 0, NameField::From("\\f")}), Admission::Admitted);
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

  for (size_t i = 0; i < MissingBlocks::GAP_LIMIT + 5; ++i) missing.AddGap({1, 0, 9, 1, 3, 9});
  EXPECT_EQ(counters[Count::RefusedGaps], 5u);
  EXPECT_EQ(counters[Count::GapsHighWater], MissingBlocks::GAP_LIMIT);
}

TEST(RequestTimerTest, FollowsTheRoundTripAndDoublesForARepeatedRequest) {
  RequestTimer timer;
  timer.Sent(0ms, {1, 0});
  timer.Answered(100ms, {1, 1});
  EXPECT_EQ(timer.Due(), RequestTimer::INITIAL) << "not what was asked for";
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
