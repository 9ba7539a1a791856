// What the two commands tell each other: what is not as it should be is not taken, and what all have is found.
#include <gtest/gtest.h>

#include "cli/outcome/common_holdings.h"
#include "cli/staging/kept.h"
#include "cli/talk/messages.h"
#include "temp_tree.h"

namespace quorl::cli {
namespace {

using Kind = Have::Kind;

TEST(Talk, EveryMessageComesBackAndNoneThatWasCut) {
  const About about{About::Purpose::Contents, 2, 7, uint64_t{1} << 40, true, {1, 2}};
  const RunningDigests digests{{{5, Digest{1, 2}}, {6, Digest{3}}}};
  for (const Word& word : {Word(about), Word(digests), Word(Changed{"tree/a"}), Word(Over{})}) {
    const Bytes bytes = FormatWord(word);
    const auto parsed = ParseWord(bytes);
    ASSERT_TRUE(parsed) << word.index();
    EXPECT_EQ(FormatWord(*parsed), bytes);
  }
  const Have have{1, {{Kind::Whole, 1, 0, 3}, {Kind::Blocks, 9, 4, 5}}};
  for (const Letter& letter : {Letter(have), Letter(HaveAll{1}), Letter(StillAtWork{}),
                               Letter(FinalVerdict{13, 2, "x"}), Letter(Intake{1, 2, 3, 4})}) {
    const Bytes bytes = FormatLetter(letter);
    const auto parsed = ParseLetter(bytes);
    ASSERT_TRUE(parsed) << letter.index();
    EXPECT_EQ(FormatLetter(*parsed), bytes);
    if (letter.index() != 3) {
      EXPECT_FALSE(ParseLetter(std::span(bytes).first(bytes.size() - 1))) << letter.index();
    }
  }
  const Bytes cut = FormatWord(about);
  EXPECT_FALSE(ParseWord(std::span(cut).first(cut.size() - 1)));
  EXPECT_FALSE(ParseWord({}));
  EXPECT_FALSE(ParseLetter(Bytes{99}));
  Bytes wrongKind = FormatLetter(have);
  wrongKind[2] = 4;
  EXPECT_FALSE(ParseLetter(wrongKind));
}

TEST(Talk, OnlyWhatAllHaveIsCommonAndNothingBeyondTheFiles) {
  const std::vector<uint64_t> blocks = {10, 10, 10};
  Holdings one(blocks), other(blocks);
  for (const Have::Run& run : {Have::Run{Kind::Blocks, 1, 0, 4},
                               {Kind::Blocks, 1, 6, 4},
                               {Kind::Whole, 2, 0, 9},
                               {Kind::Blocks, 0, 0, 1},
                               {Kind::Whole, 4, 0, 1},
                               {Kind::Asks, 3, 0, UINT32_MAX}})
    one.Add(run);
  for (const Have::Run& run : {Have::Run{Kind::Blocks, 1, 2, 6},
                               {Kind::Blocks, 1, 3, 2},
                               {Kind::Blocks, 1, 9, 1},
                               {Kind::Blocks, 2, 5, 6},
                               {Kind::Blocks, 3, UINT32_MAX, UINT32_MAX},
                               {Kind::Whole, 3, 0, 1}})
    other.Add(run);
  EXPECT_EQ(one.Asks(), std::set<size_t>{2});
  one.Intersect(other);
  EXPECT_EQ(one.Has(), (Holdings::Ranges{{0, {{2, 4}, {6, 8}, {9, 10}}}, {2, {{0, 10}}}}))
      << "runs that overlap, or reach beyond a file, are not taken";
}

class KeptTest : public TempTreeTest {};

TEST_F(KeptTest, ARecordComesBackAndOneThatWasTornIsNone) {
  const Directory directory = Directory::Open(root.native());
  Kept kept;
  kept.files["a/b\n"] = {3 * 4254, {5, 6}, {{0, 2}, {3, 1}}};
  kept.files["whole"] = {10, {7, 0}, {{0, 1}}};
  ASSERT_FALSE(WriteRecord(directory, kept));
  const Kept read = ReadRecord(directory);
  ASSERT_EQ(read.files.size(), 2u);
  EXPECT_EQ(read.files.at("a/b\n").blocks, kept.files["a/b\n"].blocks);
  EXPECT_EQ(read.files.at("a/b\n").written, (FileTime{5, 6}));
  EXPECT_TRUE(read.files.at("whole").IsWhole());
  EXPECT_FALSE(read.files.at("a/b\n").IsWhole());
  const std::string text = ReadText(root / RECORD_NAME);
  for (const auto& [from, to] : {std::pair<std::string, std::string>{"whole", "whale"},
                                 {"0 3 1", "0 3 2"},
                                 {"0 3 1", "9 0 1"},
                                 {"0 3 1", "0 1 1"}}) {
    std::string torn = text;
    torn.replace(torn.rfind(from), from.size(), to);
    Write(RECORD_NAME, torn);
    EXPECT_TRUE(ReadRecord(directory).files.empty()) << to;
  }
}

}  // namespace
}  // namespace quorl::cli
