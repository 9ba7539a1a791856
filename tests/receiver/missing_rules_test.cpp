// The rules by which a receiver finds out what it lacks: the sequence test, what a gap stands for, the keys, the record
// of what is stored.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

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

TEST(SequenceTest, ALateCopyMovesThePositionBack) {
  SequencePosition position = At(1, 5, 9);
  EXPECT_FALSE(position.MoveTo(1, 3, 9));
  EXPECT_EQ(position.MoveTo(1, 6, 9), (GapRecord{1, 3, 9, 1, 6, 9}));
}

TEST(SequenceTest, AResentBlockLeavesTheLastBlockAsItWas) {
  SequencePosition position = At(1, 5, 9);
  position.MoveToResent(3, 0);
  EXPECT_EQ(position.File(), 3u);
  EXPECT_EQ(position.Block(), 0u);
  EXPECT_EQ(position.LastBlock(), 9u);
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

TEST(GapExpansionTest, AbsurdNumbersYieldNoMoreThanTheTransferHas) {
  EXPECT_EQ(Expanded({1, 0, UINT32_MAX, UINT32_MAX, UINT32_MAX, UINT32_MAX}, 1000).size(), 1000u);
  EXPECT_EQ(Expanded({1, 0, 0, UINT32_MAX, 0, 0}, 3), (Blocks{{2, 0}, {3, 0}, {4, 0}}));
  EXPECT_EQ(Expanded({1, UINT32_MAX, 0, 2, 1, 1}), (Blocks{{2, 0}}));
  EXPECT_EQ(Expanded({1, 0, 9, 2, 0, 0}, 0), Blocks{});
}

std::string Text(std::span<const char> digits) {
  return {digits.begin(), digits.end()};
}

TEST(LostMapTest, KeysArePaddedSoThatTheFirstEntryIsTheFirstBlock) {
  EXPECT_EQ(Text(PadNumber(0)), "0000000000");
  EXPECT_EQ(Text(PadNumber(42)), "0000000042");
  EXPECT_EQ(Text(PadNumber(UINT32_MAX)), "4294967295");
  EXPECT_EQ(Text(blockKey({1, 0})), "00000000010000000000");
  LostMap map;
  for (const LostBlock block : Blocks{{10, 0}, {9, 100}, {9, 20}, {9, 20}}) EXPECT_TRUE(map.Enter(block));
  EXPECT_EQ(map.Size(), 3u);
  EXPECT_EQ(map.First(), (LostBlock{9, 20}));
  map.RemoveFile(9);
  EXPECT_EQ(map.First(), (LostBlock{10, 0}));
  EXPECT_FALSE(map.Remove({9, 20}));
  EXPECT_TRUE(map.Remove({10, 0}));
  EXPECT_TRUE(map.IsEmpty());
}

Blocks MissingOf(const StoredBlocks& stored) {
  Blocks missing;
  stored.ForEachMissing([&](LostBlock block) {
    missing.push_back(block);
    return true;
  });
  return missing;
}

TEST(StoredBlocksTest, WhatCannotBelongToTheTransferIsNotAdmitted) {
  StoredBlocks stored(3, 8);
  EXPECT_TRUE(stored.Admit(2, {3, 10}, "\\b"));
  EXPECT_TRUE(stored.Admit(2, {3, 10}, "\\b"));
  EXPECT_FALSE(stored.Admit(2, {4, 10}, "\\b"));
  EXPECT_FALSE(stored.Admit(2, {3, 11}, "\\b"));
  EXPECT_FALSE(stored.Admit(2, {3, 10}, "\\c"));
  EXPECT_FALSE(stored.Admit(4, {0, 0}, "\\d"));
  EXPECT_FALSE(stored.Admit(0, {0, 0}, "\\d"));
  // 8 blocks in all, 4 known, at least one for the third file.
  EXPECT_FALSE(stored.Admit(1, {3, 0}, "\\a"));
  EXPECT_TRUE(stored.Admit(1, {2, 0}, "\\a"));
  EXPECT_FALSE(stored.Admit(3, {1, 0}, "\\c"));
  EXPECT_TRUE(stored.Admit(3, {0, 0}, "\\c"));
}

TEST(StoredBlocksTest, AForgedShapeTakesNoMemoryAndAbsurdTotalsAdmitNothing) {
  StoredBlocks stored(2, 5);
  EXPECT_FALSE(stored.Admit(1, {UINT32_MAX, 0}, "\\a"));
  StoredBlocks moreFilesThanBlocks(UINT32_MAX, 5);
  EXPECT_FALSE(moreFilesThanBlocks.Admit(1, {0, 0}, "\\a"));
}

TEST(StoredBlocksTest, AFailedFileIsNeitherMissingNorEverWhole) {
  StoredBlocks stored(2, 4);
  ASSERT_TRUE(stored.Admit(1, {2, 0}, "\\a"));
  EXPECT_TRUE(stored.Fail(1, 112));
  EXPECT_FALSE(stored.Fail(1, 1001));
  EXPECT_EQ(MissingOf(stored), (Blocks{{2, 0}}));
  ASSERT_TRUE(stored.Admit(2, {0, 7}, "\\b"));
  stored.Store(1, 0, 3);
  stored.Store(2, 0, 1);
  EXPECT_EQ(MissingOf(stored), Blocks{});
  EXPECT_FALSE(stored.IsWhole());
  EXPECT_EQ(stored.FirstFailure(), 112u);
  EXPECT_EQ(stored.BlocksOfFailedFiles(), 3u);
}

/// A random history of one transfer beside a plain set of what is stored.
void CompareWithModel(uint32_t seed) {
  std::mt19937 random(seed);
  const auto upTo = [&](uint32_t limit) { return static_cast<uint32_t>(random() % (limit + 1)); };
  std::vector<FileShape> shapes(1 + upTo(7));
  uint32_t total = 0;
  for (FileShape& shape : shapes) {
    shape = {upTo(70), static_cast<uint16_t>(upTo(4253))};
    total += shape.lastBlock + 1;
  }
  const auto fileCount = static_cast<uint32_t>(shapes.size());
  StoredBlocks stored(fileCount, total);
  std::set<std::pair<uint32_t, uint32_t>> model;
  std::set<uint32_t> seen, failed;
  for (int step = 0; step < 300; ++step) {
    const uint32_t file = 1 + upTo(fileCount - 1);
    const FileShape& shape = shapes[file - 1];
    ASSERT_TRUE(stored.Admit(file, shape, "\\f"));
    seen.insert(file);
    const uint32_t first = upTo(shape.lastBlock);
    const uint32_t count = 1 + upTo(std::min(29u, shape.lastBlock - first));
    stored.Store(file, first, count);
    for (uint32_t block = first; block < first + count; ++block) model.emplace(file, block);
    if (upTo(200) == 0) {
      stored.Fail(file, 1001);
      failed.insert(file);
    }
    Blocks expected;
    for (uint32_t f = 1; f <= fileCount; ++f) {
      if (failed.contains(f)) continue;
      const uint32_t last = seen.contains(f) ? shapes[f - 1].lastBlock : 0;
      for (uint32_t b = 0; b <= last; ++b)
        if (!model.contains({f, b})) expected.push_back({f, b});
    }
    ASSERT_EQ(MissingOf(stored), expected) << "seed " << seed << " step " << step;
    ASSERT_EQ(stored.MissingCount(), expected.size());
    ASSERT_EQ(stored.StoredCount(), model.size());
    ASSERT_EQ(stored.IsWhole(), model.size() == total && failed.empty());
  }
}

TEST(StoredBlocksTest, AgreesWithAPlainSetOverRandomHistories) {
  for (uint32_t seed = 0; seed < 40; ++seed) CompareWithModel(seed);
}

BlockHead Head(uint32_t file, FileShape shape) {
  return {file, 0, shape.lastBlock, 1, shape.tailSize, NameField::From("\\f" + std::to_string(file))};
}

TEST(MissingBlocksTest, OnlyBlocksThatCanExistAreEntered) {
  MissingBlocks missing;
  missing.Begin(3, 10);
  ASSERT_TRUE(missing.Admit(Head(1, {3, 0})));
  missing.EnterBlocks(1, 2, 500000);
  missing.EnterBlocks(2, 0, 7);  // of a file never seen
  missing.EnterFiles(3, 3000);
  EXPECT_EQ(missing.CountForAnswer(), 4u);
  EXPECT_TRUE(missing.Contains({1, 3}) && missing.Contains({2, 0}) && missing.Contains({3, 0}));
}

TEST(MissingBlocksTest, GapsAreExpandedByWhoAddsThemOnceTheThreadHasEnded) {
  MissingBlocks missing;
  missing.Begin(1, 10);
  ASSERT_TRUE(missing.Admit(Head(1, {9, 0})));
  missing.AddGap({1, 0, 9, 1, 3, 9});
  EXPECT_FALSE(missing.EndExpansion());
  EXPECT_EQ(missing.First(), std::nullopt);
  EXPECT_FALSE(missing.IsClear());
  ASSERT_TRUE(missing.TakeGap());
  EXPECT_TRUE(missing.EndExpansion());
  missing.AddGap({1, 3, 9, 1, 6, 9});
  EXPECT_EQ(missing.First(), (LostBlock{1, 4}));
  EXPECT_FALSE(missing.TakeGap());
}

TEST(MissingBlocksTest, WhatBelongsToAnEarlierTransferIsIgnored) {
  MissingBlocks missing;
  const uint32_t earlier = missing.Begin(1, 2);
  ASSERT_TRUE(missing.Admit(Head(1, {1, 0})));
  const uint32_t later = missing.Begin(1, 1);
  ASSERT_TRUE(missing.Admit(Head(1, {0, 5})));
  missing.Store(earlier, 1, 0, 2);
  EXPECT_FALSE(missing.Fail(earlier, 1, 1001));
  EXPECT_FALSE(missing.EnterExpanded(earlier, {1, 0}));
  EXPECT_TRUE(missing.IsClear());
  EXPECT_FALSE(missing.IsWhole());
  missing.Store(later, 1, 0, 1);
  EXPECT_TRUE(missing.IsWhole());
}

TEST(MissingBlocksTest, TheMapIsBoundedAndFillsAgainFromWhatIsStored) {
  MissingBlocks missing;
  const auto blocks = static_cast<uint32_t>(LostMap::LIMIT + 100);
  const uint32_t generation = missing.Begin(1, blocks);
  ASSERT_TRUE(missing.Admit(Head(1, {blocks - 1, 0})));
  missing.EnterUnstored();
  EXPECT_EQ(missing.CountForAnswer(), blocks);
  EXPECT_EQ(missing.Count().missing, LostMap::LIMIT);
  EXPECT_FALSE(missing.Contains({1, blocks - 1}));
  missing.Store(generation, 1, 0, LostMap::LIMIT);
  missing.Clear();
  missing.EnterUnstored();
  EXPECT_EQ(missing.CountForAnswer(), 100u);
  EXPECT_EQ(missing.First(), (LostBlock{1, static_cast<uint32_t>(LostMap::LIMIT)}));
}

TEST(RequestTimerTest, FollowsTheRoundTripWithinItsBounds) {
  RequestTimer timer;
  EXPECT_EQ(timer.Due(), std::nullopt);
  timer.Sent(0ms, {1, 0});
  EXPECT_EQ(timer.Due(), RequestTimer::INITIAL);
  timer.Answered(100ms, {1, 1});  // not what was asked for
  EXPECT_EQ(timer.Due(), RequestTimer::INITIAL);
  timer.Answered(40ms, {1, 0});
  EXPECT_EQ(timer.Due(), std::nullopt);
  timer.Sent(1000ms, {1, 1});
  EXPECT_EQ(timer.Due(), 1000ms + 40ms + 4 * 20ms);
  timer.Answered(1040ms, {1, 1});  // variation falls to 15 ms
  timer.Sent(2000ms, {1, 2});
  EXPECT_EQ(timer.Due(), 2000ms + 40ms + 4 * 15ms);
  for (uint32_t block = 3; block < 60; ++block) {
    timer.Answered(2000ms, {1, block - 1});
    timer.Sent(2000ms, {1, block});
  }
  EXPECT_EQ(timer.Due(), 2000ms + RequestTimer::SHORTEST);
}

TEST(RequestTimerTest, ARepeatedRequestWaitsTwiceAsLongAndMeasuresNothing) {
  RequestTimer timer;
  timer.Sent(0ms, {1, 0});
  timer.Answered(10ms, {1, 0});
  timer.Sent(100ms, {1, 1});
  EXPECT_EQ(timer.Due(), 130ms);
  timer.Sent(130ms, {1, 1});
  EXPECT_EQ(timer.Due(), 190ms);
  for (int i = 0; i < 9; ++i) timer.Sent(200ms, {1, 1});
  EXPECT_EQ(timer.Due(), 200ms + RequestTimer::LONGEST);
  timer.Answered(201ms, {1, 1});
  timer.Sent(300ms, {1, 2});
  EXPECT_EQ(timer.Due(), 300ms + RequestTimer::LONGEST);
  timer.Answered(310ms, {1, 2});
  timer.Sent(400ms, {1, 3});
  EXPECT_LT(*timer.Due(), 440ms);
  timer.Stop();
  EXPECT_EQ(timer.Due(), std::nullopt);
}

}  // namespace
}  // namespace quorl
