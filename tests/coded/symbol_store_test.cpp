// What a receiver gathers, hands over and says that it lacks.
#include "coded/receiver/symbol_store.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quorl {
namespace {

const Catalogue LIST{"", {{"\\a", {99, 17}}, {"\\b", {0, 0}}}, {}};

struct Store : testing::Test {
  static Poll Announced() {
    return {.transfer = 7,
            .round = 3,
            .endGroup = 4,
            .catalogueLength = static_cast<uint32_t>(BuildCatalogue(LIST).size()),
            .symbolSize = SYMBOL_SIZE};
  }

  bool Take(uint32_t group, uint8_t index, uint8_t byte = 0x5A, size_t size = SYMBOL_SIZE) {
    const std::vector<uint8_t> bytes(size, byte);
    return store.Take({{7, group, index}, bytes});
  }
  void TakeList() {
    std::vector<uint8_t> bytes = BuildCatalogue(LIST);
    bytes.resize(SYMBOL_SIZE);
    ASSERT_TRUE(store.Take({{7, 0, 0}, bytes}));
    const auto list = store.TakeCatalogue();
    ASSERT_TRUE(list && ParseCatalogue(*list, 2, 101));
    store.SetContents({LIST.files[0].shape, LIST.files[1].shape});
  }
  std::vector<GroupLack> Lacking() { return store.Answer(Announced()).groups; }

  SymbolStore store{Announced()};
};

TEST_F(Store, SaysWhatItLacksUntilItHasBeenTakenOver) {
  EXPECT_FALSE(Take(1, 0)) << "nobody knows yet what that is of";
  EXPECT_EQ(store.Answer(Announced()).head.endGroup, 1u);
  EXPECT_EQ(Lacking(), (std::vector<GroupLack>{{0, 1}}));
  TakeList();
  // 43 blocks, 43 blocks, and 13 with the tail and the empty file.
  EXPECT_EQ(Lacking(), (std::vector<GroupLack>{{1, 126}, {2, 126}, {3, 38}}));
  for (uint8_t i = 0; i < 38; ++i) EXPECT_TRUE(Take(3, static_cast<uint8_t>(i < 20 ? i : 200 + i)));
  EXPECT_EQ(Lacking().back(), (GroupLack{3, 0})) << "whole, but in nobody else's hands";
  const auto run = store.NextRun()->blocks;
  EXPECT_TRUE(run.first == 86 && run.count == 14) << run.first << " " << run.count;
  EXPECT_EQ(store.NextRun()->blocks.file, 2u);
  EXPECT_EQ(Lacking().back(), (GroupLack{3, 0})) << "the last run may have been asked for in vain";
  EXPECT_FALSE(store.NextRun());
  EXPECT_EQ(Lacking(), (std::vector<GroupLack>{{1, 126}, {2, 126}}));
}

TEST_F(Store, TakesNothingThatCannotBe) {
  TakeList();
  EXPECT_FALSE(Take(0, 0)) << "the list is known";
  EXPECT_FALSE(Take(4, 0)) << "there is no such group";
  EXPECT_FALSE(Take(UINT32_MAX, 0));
  EXPECT_FALSE(Take(3, 38)) << "it has 38 source symbols";
  EXPECT_FALSE(Take(1, 0, 0, SYMBOL_SIZE - 1));
  EXPECT_FALSE(Take(1, 0, 0, SYMBOL_SIZE + 1));
  EXPECT_TRUE(Take(1, 255) && !Take(1, 255)) << "the same once more";
  EXPECT_FALSE(store.Take({{8, 1, 1}, std::vector<uint8_t>(SYMBOL_SIZE)})) << "of another transfer";
  for (const uint32_t length : {uint32_t{0}, static_cast<uint32_t>(LONGEST_CATALOGUE + 1), UINT32_MAX}) {
    Poll poll = Announced();
    poll.catalogueLength = length;
    EXPECT_FALSE(SymbolStore::Takes(poll)) << length;
  }
}

TEST_F(Store, HoldsNoMoreGroupsThanItHasRoomFor) {
  TakeList();
  store.SetContents({{43 * 1000, 0}});
  uint32_t held = 0;
  for (uint32_t group = 1; group < 1000; ++group) held += Take(group, 0) ? 1 : 0;
  EXPECT_EQ(held, SymbolStore::MOST_GROUPS);
}

}  // namespace
}  // namespace quorl
