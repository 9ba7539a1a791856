#include "platform/relative_path.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

using Components = std::vector<std::string>;

TEST(RelativePath, BackslashesDivideAndNeverMakeAnEmptyComponent) {
  EXPECT_EQ(RelativePath::FromText("\\a\\\\b c\\")->Components(), (Components{"a", "b c"}));
  EXPECT_EQ(RelativePath::FromText("a")->Components(), (Components{"a"}));
  for (const char* nothing : {"", "\\", "\\\\\\"}) EXPECT_TRUE(RelativePath::FromText(nothing)->IsEmpty());
}

TEST(RelativePath, WhatCouldLeadElsewhereIsNoPath) {
  for (const std::string text : {"..", "a\\..", "..\\a", "a\\..\\b", ".", "a\\.", "a/b", "/", "\\a\\/etc", "a\\../b"})
    EXPECT_FALSE(RelativePath::FromText(text)) << text;
  EXPECT_FALSE(RelativePath::FromText(std::string_view("a\0b", 3)));
  // Only whole components are special.
  EXPECT_TRUE(RelativePath::FromText("...\\.a\\b..\\a..b"));
}

}  // namespace
}  // namespace quorl
