// Groups against the plain rule: blocks one behind the other, as many as fit; those of one file are a run.
#include "coded/group_layout.h"

#include <gtest/gtest.h>

#include <random>

namespace quorl {
namespace {

std::vector<std::vector<BlockRun>> PlainGroups(const std::vector<FileShape>& shapes) {
  std::vector<std::vector<BlockRun>> groups(1);
  size_t fill = 0;
  for (size_t file = 0; file < shapes.size(); ++file) {
    for (uint32_t block = 0; block <= shapes[file].lastBlock; ++block) {
      const size_t size = shapes[file].BytesInBlock(block);
      if (fill + size > GROUP_SIZE) {
        groups.emplace_back();
        fill = 0;
      }
      const auto number = static_cast<uint32_t>(file + 1);
      if (groups.back().empty() || groups.back().back().file != number)
        groups.back().push_back({.file = number, .first = block, .offset = fill});
      ++groups.back().back().count;
      groups.back().back().size += size;
      fill += size;
    }
  }
  return groups;
}

TEST(GroupLayout, PutsBlocksOneBehindTheOther) {
  std::mt19937 random(1);
  constexpr uint16_t FULL_TAIL = BLOCK_SIZE - 1;
  for (int run = 0; run < 300; ++run) {
    std::vector<FileShape> shapes;
    for (int i = 0; i < 30; ++i) {
      // Around the borders of a group more often than not.
      const uint32_t lasts[] = {0, 0, 1, 42, 43, 44, 86, static_cast<uint32_t>(random() % 200)};
      const uint16_t tails[] = {0, 1, FULL_TAIL, static_cast<uint16_t>(random() % BLOCK_SIZE)};
      shapes.push_back({lasts[random() % std::size(lasts)], tails[random() % std::size(tails)]});
    }
    const auto expected = PlainGroups(shapes);
    const GroupLayout layout(shapes);
    ASSERT_EQ(layout.Count(), expected.size());
    for (uint32_t group = 0; group < layout.Count(); ++group) {
      auto runs = layout.Runs(group);
      for (const BlockRun& should : expected[group]) {
        const auto is = runs.Next();
        ASSERT_TRUE(is && is->file == should.file && is->first == should.first && is->count == should.count &&
                    is->offset == should.offset && is->size == should.size)
            << run << " " << group << " " << should.file << " " << should.first;
      }
      ASSERT_FALSE(runs.Next()) << run << " " << group;
      const BlockRun& last = expected[group].back();
      ASSERT_EQ(layout.BytesIn(group), last.offset + last.size) << run << " " << group;
    }
  }
}

}  // namespace
}  // namespace quorl
