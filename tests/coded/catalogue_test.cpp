// The list in front of the contents: whole, or nothing.
#include "coded/catalogue.h"

#include <gtest/gtest.h>

#include "protocol/name_field.h"

namespace quorl {
namespace {

TEST(Catalogue, IsTakenWholeOrNotAtAll) {
  const Catalogue sent{"\\open", {{"\\a", {0, 0}}, {"\\b\\c", {3, 17}}}, {"\\empty", "\\more"}};
  const auto bytes = BuildCatalogue(sent);
  const auto taken = ParseCatalogue(bytes, 2, 5);
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->autoOpenName, sent.autoOpenName);
  EXPECT_EQ(taken->files[1].name, "\\b\\c");
  EXPECT_EQ(taken->files[1].shape, (FileShape{3, 17}));
  EXPECT_EQ(taken->directories, sent.directories);

  for (size_t size = 0; size < bytes.size(); ++size)
    EXPECT_FALSE(ParseCatalogue(std::span(bytes).first(size), 2, 5)) << size;
  auto longer = bytes;
  longer.push_back(0);
  EXPECT_FALSE(ParseCatalogue(longer, 2, 5));
  EXPECT_FALSE(ParseCatalogue(bytes, 3, 5)) << "another number of files than announced";
  EXPECT_FALSE(ParseCatalogue(bytes, 2, 6)) << "another number of blocks";
  EXPECT_FALSE(ParseCatalogue(BuildCatalogue({"", {{std::string(NAME_TEXT_SIZE, 'x'), {0, 0}}}, {}}), 1, 1));
}

}  // namespace
}  // namespace quorl
