// Groups against the plain rule: blocks one behind the other, as many as fit.
#include "coded/group_layout.h"

#include <gtest/gtest.h>

#include <random>

namespace quorl {
namespace {

std::vector<std::vector<BlockPlace>> PlainGroups(const std::vector<FileShape>& shapes) {
  std::vector<std::vector<BlockPlace>> groups(1);
  size_t fill = 0;
  for (size_t file = 0; file < shapes.size(); ++file) {
    for (uint32_t block = 0; block <= shapes[file].lastBlock; ++block) {
      const size_t size = shapes[file].BytesInBlock(block);
      if (fill + size > GROUP_SIZE) {
        groups.emplace_back();
        fill = 0;
      }
      groups.back().push_back({static_cast<uint32_t>(file + 1), block, fill, size});
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
      auto blocks = layout.Blocks(group);
      for (const BlockPlace& should : expected[group]) {
        const auto is = blocks.Next();
        ASSERT_TRUE(is && is->file == should.file && is->block == should.block && is->offset == should.offset &&
                    is->size == should.size)
            << run << " " << group << " " << should.file << " " << should.block;
      }
      ASSERT_FALSE(blocks.Next()) << run << " " << group;
      const BlockPlace& last = expected[group].back();
      ASSERT_EQ(layout.BytesIn(group), last.offset + last.size) << run << " " << group;
    }
  }
}

}  // namespace
}  // namespace quorl
