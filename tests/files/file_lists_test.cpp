#include "files/file_lists.h"

#include "tests/files/fake_machine.h"

namespace quorl {
namespace {

constexpr bool FIRST_LEVEL = false;
constexpr bool ANY_DEPTH = true;

class FileListsTest : public FakeMachineTest {
 protected:
  int32_t Build(std::vector<std::string> selected, int32_t parentPathLength, bool subDirTrans) {
    lists = {std::move(selected), {}, {}};
    return BuildFileList(machine, {parentPathLength, subDirTrans}, lists);
  }

  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const FileEntry& entry : lists.ArraySendFile) names.push_back(entry.relativeName);
    return names;
  }

  using Texts = std::vector<std::string>;
  FileLists lists;
};

TEST_F(FileListsTest, FollowsTheSelectionAndWalksASubdirectoryWhereItIsMet) {
  files.Directory("C:\\p", {"one.txt", "d/"});
  files.Directory("C:\\p\\d", {"z.txt", "s/", "a.txt", "t/"});
  files.Directory("C:\\p\\d\\s", {"u/", "m.txt"});
  files.Directory("C:\\p\\d\\s\\u", {});
  files.Directory("C:\\p\\d\\t", {"n.txt"});

  EXPECT_EQ(Build({"C:\\p\\d", "C:\\p\\one.txt"}, 4, ANY_DEPTH), 5);
  EXPECT_EQ(Names(), (Texts{"\\d\\z.txt", "\\d\\s\\m.txt", "\\d\\a.txt", "\\d\\t\\n.txt", "\\one.txt"}));
  EXPECT_EQ(lists.ArraySendFile[1].fullPath, "C:\\p\\d\\s\\m.txt");
  EXPECT_EQ(lists.ArrayEmptyDir, (Texts{"\\d\\s\\u", "\\d\\t"}));

  EXPECT_EQ(Build({"C:\\p\\one.txt", "C:\\p\\d"}, 4, FIRST_LEVEL), 3);
  EXPECT_EQ(Names(), (Texts{"\\one.txt", "\\d\\z.txt", "\\d\\a.txt"}));
  EXPECT_EQ(lists.ArrayEmptyDir, Texts{});

  // Files alone leave a directory "empty", and a file selected twice travels twice.
  EXPECT_EQ(Build({"C:\\p\\d\\t", "C:\\p\\d\\t\\n.txt"}, 6, FIRST_LEVEL), 2);
  EXPECT_EQ(Names(), (Texts{"\\t\\n.txt", "\\n.txt"}));
  EXPECT_EQ(lists.ArrayEmptyDir, Texts{"\\t"});
}

TEST_F(FileListsTest, ExaminesNamesOnTheFirstLevelOnly) {
  for (const char illegal : std::string("*?><\"|:")) {
    SCOPED_TRACE(illegal);
    const std::string name = std::string("x") + illegal;
    files.listings.clear();
    files.Directory("C:\\d", {name, "s/"});
    files.Directory("C:\\d\\s", {name});
    EXPECT_EQ(Build({"C:\\d"}, 2, FIRST_LEVEL), -1);
    EXPECT_EQ(Build({"C:\\d"}, 2, ANY_DEPTH), -1);
    EXPECT_EQ(Names(), Texts{"\\d\\s\\" + name});
    EXPECT_EQ(Build({"C:\\d\\s"}, 2, FIRST_LEVEL), -1);
    EXPECT_EQ(Build({"C:\\d\\" + name}, 4, FIRST_LEVEL), 1) << "its first three bytes are not examined";
    EXPECT_EQ(Build({"C:\\d\\s\\" + name}, 2, FIRST_LEVEL), 1);
  }
  files.Directory("C:\\e", {"xy?z"});
  EXPECT_EQ(Build({"C:\\e\\xy?z"}, 4, FIRST_LEVEL), -1);
}

TEST_F(FileListsTest, ANameWithABackslashNeverTravels) {
  files.Directory("C:\\d", {"s/"});
  files.Directory("C:\\d\\s", {"a\\b.txt", "ok.txt", "x\\y/"});
  files.Directory("C:\\d\\s\\x\\y", {"inside.txt"});
  EXPECT_EQ(Build({"C:\\d"}, 2, ANY_DEPTH), -1);
  EXPECT_EQ(Names(), Texts{"\\d\\s\\ok.txt"});
  EXPECT_EQ(Build({"C:\\d\\s"}, 4, FIRST_LEVEL), -1) << "a file on the first level";
}

TEST_F(FileListsTest, AFileWithTooManyBlocksIsLeftOutAnUnreadableOneIsNot) {
  files.Directory("C:\\d", {"largest", "larger", "locked"});
  files.lengths["C:\\d\\larger"] = uint64_t{UINT32_MAX} * 4254;
  files.lengths["C:\\d\\largest"] = files.lengths["C:\\d\\larger"] - 1;
  files.unreadable.insert("C:\\d\\locked");
  EXPECT_EQ(Build({"C:\\d"}, 2, FIRST_LEVEL), -1);
  EXPECT_EQ(Names(), (Texts{"\\d\\largest", "\\d\\locked"}));
}

TEST_F(FileListsTest, WalksDeepTreesAndEndsInEndlessOnes) {
  std::string folder = "C:\\d";
  for (int level = 0; level < 100; ++level) {
    files.Directory(folder, {"s/"});
    folder += "\\s";
  }
  files.Directory(folder, {"bottom"});
  EXPECT_EQ(Build({"C:\\d"}, 2, ANY_DEPTH), 1);
  EXPECT_EQ(lists.ArraySendFile[0].fullPath, folder + "\\bottom");

  files.everyDirectoryHolds = {{"s", true}};
  EXPECT_EQ(Build({"C:\\d"}, 2, ANY_DEPTH), -1);
  EXPECT_EQ(lists.ArrayEmptyDir, Texts{});
}

}  // namespace
}  // namespace quorl
