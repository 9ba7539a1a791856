#include "files/selection.h"

#include "tests/files/one_machine.h"

namespace quorl {
namespace {

class SelectionTest : public OneMachineTest {
 protected:
  SelectionTest() { Make({"C:\\d\\a.txt", "C:\\d\\b.txt", "C:\\d\\s\\"}); }

  Selection selection{machine};
};

TEST_F(SelectionTest, RefusesAPathWithItsResultAndItsMessage) {
  struct Case {
    std::string path;
    int32_t result;
    std::string message;
  };
  const Case cases[] = {
      {"C:\\" + std::string(258, 'x'), 2, "\nQuorl-----File Name Lenght > Max_path in CStringArray!\n"},
      {"C:", 3, "\nQuorl-----File Name Lenght < 3 in CStringArray!\n"},
      {"\\\\server\\share", 4, "\nQuorl-----driver error\n"},
      {"data\\file?", 4, "\nQuorl-----driver error\n"},  // The colon is looked for first.
      {"C:\\a?b.txt", 5, "\nQuorl-----File Name has illegal char!\n"},
      {"C:\\dir\\x:y", 5, "\nQuorl-----File Name has illegal char!\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    ASSERT_EQ(selection.SetSelectFiles({"C:\\d\\a.txt"}, "\\kept", false), 1);
    EXPECT_EQ(selection.SetSelectFiles({"C:\\d\\b.txt", c.path, "C:\\d\\a.txt"}, "\\ignored", false), c.result);
    EXPECT_EQ(TakeDebug(), c.message);
    EXPECT_EQ(selection.Lists()->ArrayFileName, Texts{"C:\\d\\b.txt"});
    EXPECT_TRUE(selection.Lists()->ArraySendFile.empty());
    EXPECT_TRUE(selection.Lists()->ArrayEmptyDir.empty());
    EXPECT_EQ(selection.AutoOpenName(), "\\kept");
  }
}

TEST_F(SelectionTest, AcceptsPathsAtTheLimitsAndDoesNotExamineTheFirstThreeBytes) {
  for (const std::string& path : {"C:\\" + std::string(257, 'x'), std::string("C:\\"), std::string("*:?")}) {
    EXPECT_EQ(selection.SetSelectFiles({path}, "", false), 1) << path;
  }
  for (const char illegal : std::string("/*?><\"|:")) {
    EXPECT_EQ(selection.SetSelectFiles({std::string("C:\\x") + illegal}, "", false), 5) << illegal;
  }
}

TEST_F(SelectionTest, TheLastBackslashOfTheLastPathCutsAllNames) {
  Make({"C:\\data\\photos\\a.jpg"});
  const auto nameWithLastPath = [this](const std::string& last) {
    EXPECT_EQ(selection.SetSelectFiles({"C:\\data\\photos", last}, "", false), 1);
    return selection.Lists()->ArraySendFile.at(0).relativeName;
  };
  EXPECT_EQ(nameWithLastPath("C:\\data\\other"), "\\photos\\a.jpg");
  EXPECT_EQ(nameWithLastPath("D:\\x\\y\\b.txt"), "a\\photos\\a.jpg");
  EXPECT_EQ(nameWithLastPath("C:gone"), "C:\\data\\photos\\a.jpg");
}

TEST_F(SelectionTest, ALeftOutNameGivesSevenAndShowsUntilTheNextSelection) {
  Make({"C:\\bad\\a?b.txt", "C:\\bad\\good.txt"});
  const Texts good = {"C:\\d\\a.txt"}, bad = {"C:\\bad"};
  ASSERT_EQ(selection.SetSelectFiles(good, "\\kept", false), 1);
  EXPECT_EQ(selection.GetIsHasInvalidChar(), 0u);
  EXPECT_EQ(selection.SetSelectFiles(bad, "\\ignored", false), 7);
  EXPECT_EQ(TakeDebug(), "");
  EXPECT_EQ(selection.GetIsHasInvalidChar(), 1u);
  EXPECT_EQ(selection.AutoOpenName(), "\\kept");
  EXPECT_EQ(selection.Lists()->ArraySendFile, (std::vector<FileEntry>{{"C:\\bad\\good.txt", "\\bad\\good.txt"}}));

  EXPECT_EQ(selection.SetSelectFiles(good, "\\new", false), 1);
  EXPECT_EQ(selection.GetIsHasInvalidChar(), 0u);
  selection.SetSelectFiles(bad, "", false);
  EXPECT_EQ(selection.AutoOpenName(), "\\new") << "only a reset clears it";
  selection.Reset();
  EXPECT_EQ(selection.AutoOpenName(), "");
  EXPECT_EQ(selection.GetIsHasInvalidChar(), 0u);
}

}  // namespace
}  // namespace quorl
